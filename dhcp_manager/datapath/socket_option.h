// Options of sockets, whose refusal is an error.

#ifndef DHCP_MANAGER_DATAPATH_SOCKET_OPTION_H_
#define DHCP_MANAGER_DATAPATH_SOCKET_OPTION_H_

#include <linux/filter.h>
#include <sys/socket.h>

#include <span>
#include <string>

#include "base/system_error.h"

namespace dhcp_manager {

// Throws std::system_error; `what` is what could not be done.
template <typename Value>
void SetOption(int fd, int level, int option, const Value& value, const char* what) {
  if (setsockopt(fd, level, option, &value, sizeof(value)) != 0) {
    base::ThrowSystemError(std::string("cannot ") + what);
  }
}

// Replaces the socket's filter. Throws std::system_error.
inline void AttachFilter(int fd, std::span<const sock_filter> code) {
  // The kernel only reads the program.
  const sock_fprog program{.len = static_cast<unsigned short>(code.size()),
                           .filter = const_cast<sock_filter*>(code.data())};
  SetOption(fd, SOL_SOCKET, SO_ATTACH_FILTER, program, "filter a socket");
}

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_SOCKET_OPTION_H_
