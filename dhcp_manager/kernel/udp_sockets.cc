#include "dhcp_manager/kernel/udp_sockets.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

namespace dhcp_manager {
namespace {

struct NetlinkDeleter {
  void operator()(nl_sock* socket) const { nl_socket_free(socket); }
  void operator()(nl_msg* message) const { nlmsg_free(message); }
  void operator()(unsigned char* bytes) const { std::free(bytes); }
};
template <typename Object>
using Netlink = std::unique_ptr<Object, NetlinkDeleter>;

[[noreturn]] void Throw(const std::string& reason) {
  throw std::runtime_error("cannot ask for the UDP sockets of other processes: " + reason);
}

int Check(int result) {
  if (result < 0) Throw(nl_geterror(result));
  return result;
}

Netlink<nl_sock> OpenSocket() {
  Netlink<nl_sock> socket(nl_socket_alloc());
  if (!socket) throw std::bad_alloc();
  nl_socket_disable_auto_ack(socket.get());
  Check(nl_connect(socket.get(), NETLINK_SOCK_DIAG));
  Check(nl_socket_set_nonblocking(socket.get()));
  return socket;
}

Netlink<nl_msg> MakeRequest(int family, std::uint16_t port) {
  Netlink<nl_msg> message(nlmsg_alloc_simple(SOCK_DIAG_BY_FAMILY, NLM_F_REQUEST | NLM_F_DUMP));
  if (!message) throw std::bad_alloc();
  inet_diag_req_v2 request{};
  request.sdiag_family = static_cast<unsigned char>(family);
  request.sdiag_protocol = IPPROTO_UDP;
  request.idiag_states = std::numeric_limits<std::uint32_t>::max();
  request.id.idiag_sport = htons(port);
  Check(nlmsg_append(message.get(), &request, sizeof(request), NLMSG_ALIGNTO));
  return message;
}

nettypes::IPv4Addr FromNetworkOrder(std::uint32_t address) {
  return nettypes::IPv4Addr::from_host_order(ntohl(address));
}

// The IPv4 address for which a socket of that address receives; unspecified for every one. Nothing
// when it is of IPv6 alone.
std::optional<nettypes::IPv4Addr> IPv4Of(unsigned char family, const __be32 (&words)[4]) {
  if (family == AF_INET) return FromNetworkOrder(words[0]);
  in6_addr address{};
  std::memcpy(&address, &words[0], sizeof(address));
  if (IN6_IS_ADDR_UNSPECIFIED(&address)) return nettypes::IPv4Addr();
  if (IN6_IS_ADDR_V4MAPPED(&address)) return FromNetworkOrder(words[3]);
  return std::nullopt;
}

bool IsIPv6Only(nlmsghdr* header) {
  const nlattr* const only = nlmsg_find_attr(header, sizeof(inet_diag_msg), INET_DIAG_SKV6ONLY);
  return only != nullptr && nla_get_u8(only) != 0;
}

std::optional<UdpSocket> SocketOf(nlmsghdr* header) {
  const auto& message = *static_cast<const inet_diag_msg*>(nlmsg_data(header));
  const auto address = IPv4Of(message.idiag_family, message.id.idiag_src);
  const auto peer = IPv4Of(message.idiag_family, message.id.idiag_dst);
  if (!address || !peer || IsIPv6Only(header)) return std::nullopt;
  return UdpSocket{.address = *address,
                   .peer = *peer,
                   .ipv6 = message.idiag_family == AF_INET6,
                   .device = static_cast<int>(message.id.idiag_if),
                   .user = message.idiag_uid,
                   .inode = message.idiag_inode};
}

// Adds the sockets of one message of an answer; whether more follow.
bool Read(nlmsghdr* header, std::vector<UdpSocket>& sockets) {
  if (header->nlmsg_type == NLMSG_DONE) return false;
  if (header->nlmsg_type == NLMSG_ERROR) {
    const auto& error = *static_cast<const nlmsgerr*>(nlmsg_data(header));
    Throw(std::generic_category().message(-error.error));
  }
  if (const auto socket = SocketOf(header)) sockets.push_back(*socket);
  return true;
}

class DiagQuery final : public UdpSocketQuery {
 public:
  std::vector<UdpSocket> Find(std::uint16_t port) override {
    if (!socket_) socket_ = OpenSocket();
    try {
      std::vector<UdpSocket> sockets;
      for (const int family : {AF_INET, AF_INET6}) Find(family, port, sockets);
      return sockets;
    } catch (const std::runtime_error&) {
      // What is left of an answer must not be taken for the next one's.
      socket_.reset();
      throw;
    }
  }

 private:
  void Find(int family, std::uint16_t port, std::vector<UdpSocket>& sockets) {
    const Netlink<nl_msg> request = MakeRequest(family, port);
    Check(nl_send_auto(socket_.get(), request.get()));
    while (ReadPacket(sockets)) {
    }
  }

  // Whether more follow.
  bool ReadPacket(std::vector<UdpSocket>& sockets) {
    sockaddr_nl sender{};
    unsigned char* received = nullptr;
    int size = Check(nl_recv(socket_.get(), &sender, &received, nullptr));
    const Netlink<unsigned char> bytes(received);
    if (size == 0) Throw("no answer");
    for (auto* header = reinterpret_cast<nlmsghdr*>(received); nlmsg_ok(header, size) != 0;
         header = nlmsg_next(header, &size)) {
      if (!Read(header, sockets)) return false;
    }
    return true;
  }

  Netlink<nl_sock> socket_;
};

}  // namespace

std::unique_ptr<UdpSocketQuery> MakeUdpSocketQuery() { return std::make_unique<DiagQuery>(); }

}  // namespace dhcp_manager
