// Finds the process that has a socket open.

#ifndef CTL_SOCKET_OWNER_H_
#define CTL_SOCKET_OWNER_H_

#include <cstdint>
#include <filesystem>
#include <string>

namespace relayctl {

// "NAME (process NUMBER)" of a process that has the socket with that inode open; empty when there
// is none that the caller may look into. `proc` is where the kernel shows processes.
std::string FindSocketOwner(std::uint32_t inode, const std::filesystem::path& proc = "/proc");

}  // namespace relayctl

#endif  // CTL_SOCKET_OWNER_H_
