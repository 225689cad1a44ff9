#include "dhcp_manager/kernel/link_socket.h"

#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "base/socket_buffers.h"
#include "base/system_error.h"
#include "dhcp_manager/kernel/netlink_handle.h"

namespace dhcp_manager {
namespace {

// Room for the events of 4,094 interfaces that go down together.
constexpr int kReceiveBuffer = 32 * 1024 * 1024;
// The kernel's messages have 32 KiB at most, unless it is asked for more.
constexpr std::size_t kDatagramSize = 64 * 1024;

Netlink<nl_sock> OpenSocket() {
  constexpr char kWhat[] = "watch the kernel's interfaces";
  Netlink<nl_sock> socket = OpenNetlinkSocket(kWhat);
  base::SetReceiveBuffer(nl_socket_get_fd(socket.get()), kReceiveBuffer);
  constexpr std::array kGroups{RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR};
  for (const int group : kGroups)
    CheckNetlink(nl_socket_add_membership(socket.get(), group), kWhat);
  return socket;
}

template <typename Header>
Netlink<nl_msg> MakeRequest(int type, const Header& header) {
  Netlink<nl_msg> message(nlmsg_alloc_simple(type, NLM_F_REQUEST | NLM_F_DUMP));
  if (!message) throw std::bad_alloc();
  // nlmsg_append takes no const, and only reads.
  CheckNetlink(
      nlmsg_append(message.get(), const_cast<Header*>(&header), sizeof(header), NLMSG_ALIGNTO),
      "make a request");
  return message;
}

Netlink<nl_msg> MakeRequest(LinkSocket::Dump dump) {
  if (dump == LinkSocket::Dump::kAddresses) {
    ifaddrmsg header{};
    header.ifa_family = AF_INET;
    return MakeRequest(RTM_GETADDR, header);
  }
  Netlink<nl_msg> message = MakeRequest(RTM_GETLINK, ifinfomsg{});
  // Statistics are the greater part of an answer.
  CheckNetlink(nla_put_u32(message.get(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS),
               "make a request");
  return message;
}

class KernelLinkSocket final : public LinkSocket {
 public:
  int fd() const override { return nl_socket_get_fd(socket_.get()); }

  Request RequestDump(Dump dump) override {
    const Netlink<nl_msg> message = MakeRequest(dump);
    CheckNetlink(nl_send_auto(socket_.get(), message.get()), "ask for the kernel's interfaces");
    return {.port = nl_socket_get_local_port(socket_.get()),
            .sequence = nlmsg_hdr(message.get())->nlmsg_seq};
  }

  std::span<const std::byte> Receive() override {
    for (;;) {
      sockaddr_nl sender{};
      socklen_t sender_size = sizeof(sender);
      const ssize_t size = recvfrom(fd(), buffer_.data(), buffer_.size(), MSG_TRUNC,
                                    reinterpret_cast<sockaddr*>(&sender), &sender_size);
      if (size < 0) {
        if (errno == EINTR) continue;
        ReportError();
        return {};
      }
      // Only the kernel has this number: any process may send to this socket.
      if (sender.nl_pid == 0) return Bounded(static_cast<std::size_t>(size));
    }
  }

 private:
  static void ReportError() {
    if (errno == EAGAIN || errno == EWOULDBLOCK) return;
    if (errno == ENOBUFS) throw Overrun();
    base::ThrowSystemError("cannot read the kernel's messages about interfaces");
  }

  std::span<const std::byte> Bounded(std::size_t size) const {
    if (size > buffer_.size()) {
      throw std::runtime_error("a message of the kernel was cut short: it has " +
                               std::to_string(size) + " bytes, of which " +
                               std::to_string(buffer_.size()) + " were read");
    }
    return {buffer_.data(), size};
  }

  Netlink<nl_sock> socket_ = OpenSocket();
  std::vector<std::byte> buffer_ = std::vector<std::byte>(kDatagramSize);
};

}  // namespace

std::unique_ptr<LinkSocket> OpenLinkSocket() { return std::make_unique<KernelLinkSocket>(); }

}  // namespace dhcp_manager
