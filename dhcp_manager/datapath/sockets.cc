#include "dhcp_manager/datapath/sockets.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <span>
#include <utility>

#include "base/descriptor.h"
#include "base/socket_buffers.h"
#include "base/system_error.h"
#include "dhcp_manager/datapath/headers.h"

namespace dhcp_manager {
namespace {

using base::Descriptor;

// Room for bursts that come while the table is rebuilt.
constexpr int kBuffer = 8 * 1024 * 1024;

// Routing domains that have room for bursts, too.
constexpr std::size_t kPrepared = 16;

constexpr std::uint32_t kWholePacket = 0x40000;
constexpr std::uint8_t kBootRequest = 1;
constexpr std::uint8_t kBootReply = 2;

template <typename Value>
void SetOption(const Descriptor& socket, int level, int option, const Value& value,
               const char* what) {
  if (setsockopt(socket.get(), level, option, &value, sizeof(value)) != 0)
    base::ThrowSystemError(std::string("cannot ") + what);
}

Descriptor MakeSocket(int family) {
  Descriptor socket(::socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) return socket;
  base::SetReceiveBuffer(socket.get(), kBuffer);
  base::SetSendBuffer(socket.get(), kBuffer);
  return socket;
}

void Filter(const Descriptor& socket, std::span<sock_filter> code) {
  const sock_fprog program{.len = static_cast<unsigned short>(code.size()), .filter = code.data()};
  SetOption(socket, SOL_SOCKET, SO_ATTACH_FILTER, program, "filter a socket");
}

constexpr sock_filter Load(std::uint16_t size_and_mode, std::uint32_t offset) {
  return {
      .code = static_cast<std::uint16_t>(BPF_LD | size_and_mode), .jt = 0, .jf = 0, .k = offset};
}
constexpr sock_filter Jump(std::uint16_t test, std::uint32_t value, std::uint8_t if_true,
                           std::uint8_t if_false) {
  return {.code = static_cast<std::uint16_t>(BPF_JMP | test | BPF_K),
          .jt = if_true,
          .jf = if_false,
          .k = value};
}
constexpr sock_filter Return(std::uint32_t size) {
  return {.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = size};
}

// Offsets into the IPv4 header, and from its end.
constexpr std::uint32_t kFragmentOffset = 6;
constexpr std::uint32_t kProtocolOffset = 9;
constexpr std::uint32_t kPortOffset = 2;
constexpr std::uint32_t kOperationOffset = 8;
constexpr std::uint32_t kFragmentBits = 0x3FFF;
constexpr auto kPacketType = static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE);

}  // namespace

Sockets::Sockets() {
  // Without the rights it is tried again when it is needed, and the failure told then.
  client_ = MakeSocket(AF_PACKET);
  for (std::size_t i = 0; i < kPrepared; ++i) servers_.push_back(MakeSocket(AF_INET));
}

Descriptor Sockets::OpenClientSocket() {
  Descriptor socket = client_ ? std::move(client_) : MakeSocket(AF_PACKET);
  if (!socket) base::ThrowSystemError("cannot open a packet socket");
  std::array code{
      Load(BPF_B | BPF_ABS, kProtocolOffset),
      Jump(BPF_JEQ, IPPROTO_UDP, 0, 10),
      Load(BPF_H | BPF_ABS, kFragmentOffset),
      Jump(BPF_JSET, kFragmentBits, 8, 0),
      sock_filter{.code = BPF_LDX | BPF_B | BPF_MSH, .jt = 0, .jf = 0, .k = 0},
      Load(BPF_H | BPF_IND, kPortOffset),
      Jump(BPF_JEQ, kServerPort, 0, 5),
      Load(BPF_B | BPF_IND, kOperationOffset),
      Jump(BPF_JEQ, kBootRequest, 0, 3),
      Load(BPF_W | BPF_ABS, kPacketType),
      Jump(BPF_JEQ, PACKET_OTHERHOST, 1, 0),
      Return(kWholePacket),
      Return(0),
  };
  Filter(socket, code);
  constexpr int kOn = 1;
  SetOption(socket, SOL_PACKET, PACKET_IGNORE_OUTGOING, kOn, "leave out what is sent");
  return socket;
}

void Sockets::Listen(const Descriptor& client_socket) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  if (bind(client_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
      0) {
    base::ThrowSystemError("cannot listen to clients");
  }
}

Descriptor Sockets::OpenServerSocket(const std::string& vrf) {
  Descriptor socket;
  if (servers_.empty()) {
    socket = MakeSocket(AF_INET);
  } else {
    socket = std::move(servers_.back());
    servers_.pop_back();
  }
  if (!socket) base::ThrowSystemError("cannot open a UDP socket");
  std::array code{
      Load(BPF_B | BPF_ABS, kOperationOffset),
      Jump(BPF_JEQ, kBootReply, 0, 1),
      Return(kWholePacket),
      Return(0),
  };
  Filter(socket, code);
  constexpr int kOn = 1;
  // The sockets of several routing domains share the port.
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, kOn, "share port 67");
  if (!vrf.empty() && setsockopt(socket.get(), SOL_SOCKET, SO_BINDTODEVICE, vrf.c_str(),
                                 static_cast<socklen_t>(vrf.size() + 1)) != 0) {
    base::ThrowSystemError("cannot bind to the VRF device " + vrf);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kServerPort);
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    base::ThrowSystemError("cannot listen to servers on UDP port 67");
  }
  return socket;
}

}  // namespace dhcp_manager
