#include "base/runtime_directory.h"

#include <cstdlib>

namespace base {

std::filesystem::path RuntimeDirectory() {
  const char* const directory = std::getenv("DHCP_MANAGER_DIR");
  return directory != nullptr && *directory != '\0' ? directory : "/run/dhcp-manager";
}

}  // namespace base
