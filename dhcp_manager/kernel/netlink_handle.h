// What the sockets of rtnetlink share: owners of libnl's objects, and its errors as exceptions.

#ifndef DHCP_MANAGER_KERNEL_NETLINK_HANDLE_H_
#define DHCP_MANAGER_KERNEL_NETLINK_HANDLE_H_

#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/route.h>
#include <netlink/socket.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

namespace dhcp_manager {

struct NetlinkDeleter {
  void operator()(nl_sock* socket) const { nl_socket_free(socket); }
  void operator()(nl_msg* message) const { nlmsg_free(message); }
  void operator()(rtnl_route* route) const { rtnl_route_put(route); }
  void operator()(unsigned char* bytes) const { std::free(bytes); }
};
template <typename Object>
using Netlink = std::unique_ptr<Object, NetlinkDeleter>;

// Throws std::runtime_error "cannot <what>: <reason>" when `result` of a call of libnl is an error.
inline void CheckNetlink(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(std::string("cannot ") + what + ": " + nl_geterror(result));
  }
}

// A socket of rtnetlink that does not wait. Throws std::runtime_error, "cannot <what>" and why.
inline Netlink<nl_sock> OpenNetlinkSocket(const char* what) {
  Netlink<nl_sock> socket(nl_socket_alloc());
  if (!socket) throw std::bad_alloc();
  nl_socket_disable_auto_ack(socket.get());
  CheckNetlink(nl_connect(socket.get(), NETLINK_ROUTE), what);
  CheckNetlink(nl_socket_set_nonblocking(socket.get()), what);
  return socket;
}

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_NETLINK_HANDLE_H_
