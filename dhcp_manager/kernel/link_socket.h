// A socket of rtnetlink for links and addresses: the seam between the link feed and the kernel.

#ifndef DHCP_MANAGER_KERNEL_LINK_SOCKET_H_
#define DHCP_MANAGER_KERNEL_LINK_SOCKET_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>

namespace dhcp_manager {

// The kernel has dropped events, because the socket's buffer was full.
class Overrun : public std::runtime_error {
 public:
  Overrun() : std::runtime_error("the kernel had no room for events in the socket's buffer") {}
};

class LinkSocket {
 public:
  // What marks the messages that answer a request.
  struct Request {
    std::uint32_t port = 0;
    std::uint32_t sequence = 0;

    bool operator==(const Request&) const = default;
  };
  enum class Dump { kLinks, kAddresses };

  LinkSocket() = default;
  virtual ~LinkSocket() = default;
  LinkSocket(const LinkSocket&) = delete;
  LinkSocket& operator=(const LinkSocket&) = delete;

  // Readable while messages wait.
  virtual int fd() const = 0;

  // Asks for all links or addresses. Throws std::runtime_error.
  virtual Request RequestDump(Dump dump) = 0;

  // The next datagram: events and the answers to requests come in the order in which the kernel
  // wrote them. Empty when none waits. Valid until the next call. Throws Overrun, else
  // std::system_error when the socket cannot be used any more.
  virtual std::span<const std::byte> Receive() = 0;
};

// Reports the events of links and addresses from now on. With CAP_NET_ADMIN it has room for more of
// them. Throws std::runtime_error when the kernel refuses.
std::unique_ptr<LinkSocket> OpenLinkSocket();

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINK_SOCKET_H_
