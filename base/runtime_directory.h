// Where the processes find each other's sockets.

#ifndef BASE_RUNTIME_DIRECTORY_H_
#define BASE_RUNTIME_DIRECTORY_H_

#include <filesystem>

namespace base {

// The directory of the DHCP manager's sockets: DHCP_MANAGER_DIR, else /run/dhcp-manager.
std::filesystem::path RuntimeDirectory();

}  // namespace base

#endif  // BASE_RUNTIME_DIRECTORY_H_
