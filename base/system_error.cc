#include "base/system_error.h"

namespace base {

std::system_error SystemError(const std::string& what, int error) {
  return {error, std::generic_category(), what};
}

void ThrowSystemError(const std::string& what, int error) { throw SystemError(what, error); }

}  // namespace base
