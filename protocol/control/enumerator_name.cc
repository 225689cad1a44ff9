#include "protocol/control/enumerator_name.h"

#include <cctype>

namespace dhcp_relay::control {

std::string NameOfEnumerator(std::string_view enumerator) {
  std::string name;
  for (const char letter : enumerator.substr(1)) {
    const bool is_upper = std::isupper(static_cast<unsigned char>(letter)) != 0;
    if (is_upper && !name.empty()) name.push_back('-');
    name.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(letter))));
  }
  return name;
}

}  // namespace dhcp_relay::control
