#include "dhcp_manager/datapath/sockets.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <span>
#include <utility>

#include "base/socket_buffers.h"
#include "base/system_error.h"
#include "dhcp_manager/datapath/filters.h"
#include "dhcp_manager/datapath/headers.h"

namespace dhcp_manager {
namespace {

using base::Descriptor;

// Room for bursts that arrive while the forwarding table is rebuilt.
constexpr int kBufferSize = 8 * 1024 * 1024;

// VRFs whose sockets have room for bursts, too.
constexpr std::size_t kPreparedVrfs = 16;

template <typename Value>
void SetOption(const Descriptor& socket, int level, int option, const Value& value,
               const char* what) {
  if (setsockopt(socket.get(), level, option, &value, sizeof(value)) != 0)
    base::ThrowSystemError(std::string("cannot ") + what);
}

Descriptor MakeSocket(int family) {
  Descriptor socket(::socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) return socket;
  base::SetReceiveBuffer(socket.get(), kBufferSize);
  base::SetSendBuffer(socket.get(), kBufferSize);
  return socket;
}

void AttachFilter(const Descriptor& socket, std::span<const sock_filter> code) {
  // The kernel only reads the program.
  const sock_fprog program{.len = static_cast<unsigned short>(code.size()),
                           .filter = const_cast<sock_filter*>(code.data())};
  SetOption(socket, SOL_SOCKET, SO_ATTACH_FILTER, program, "filter a socket");
}

// A packet socket hears nothing before it is bound, so that no packet passes the filter and the
// ring by.
void Listen(const Descriptor& client_socket) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  if (bind(client_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
      0) {
    base::ThrowSystemError("cannot listen to clients");
  }
}

void BindToServerPort(const Descriptor& socket) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kServerPort);
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    base::ThrowSystemError("cannot listen to servers on UDP port 67");
  }
}

void BindToDevice(const Descriptor& socket, const std::string& device) {
  if (setsockopt(socket.get(), SOL_SOCKET, SO_BINDTODEVICE, device.c_str(),
                 static_cast<socklen_t>(device.size() + 1)) != 0) {
    base::ThrowSystemError("cannot bind to the VRF device " + device);
  }
}

}  // namespace

Sockets::Sockets() {
  // Without the capability the socket is opened when it is needed, and the failure reported then.
  client_ = MakeSocket(AF_PACKET);
  for (std::size_t i = 0; i < kPreparedVrfs; ++i) servers_.push_back(MakeSocket(AF_INET));
}

ClientSocket Sockets::OpenClientSocket() {
  Descriptor socket = client_ ? std::move(client_) : MakeSocket(AF_PACKET);
  if (!socket) base::ThrowSystemError("cannot open a packet socket");
  AttachFilter(socket, filter::kClientPackets);
  constexpr int kOn = 1;
  SetOption(socket, SOL_PACKET, PACKET_IGNORE_OUTGOING, kOn, "leave out what is sent");
  auto mapping = std::make_unique<RingMapping>(socket.get());
  Listen(socket);
  const PacketRing ring(mapping->memory());
  return {.socket = std::make_unique<KernelSocket>(std::move(socket)),
          .mapping = std::move(mapping),
          .ring = ring};
}

std::unique_ptr<BatchSocket> Sockets::OpenVrfSocket(const std::string& vrf_device) {
  Descriptor socket;
  if (servers_.empty()) {
    socket = MakeSocket(AF_INET);
  } else {
    socket = std::move(servers_.back());
    servers_.pop_back();
  }
  if (!socket) base::ThrowSystemError("cannot open a UDP socket");
  AttachFilter(socket, filter::kServerDatagrams);
  constexpr int kOn = 1;
  // The link that a reply came in through decides who may have sent it. In a VRF that is the link
  // itself and not the VRF's device (Linux 4.7).
  SetOption(socket, IPPROTO_IP, IP_PKTINFO, kOn, "ask for the interface of replies");
  // The sockets of several VRFs share the port.
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, kOn, "share port 67");
  if (!vrf_device.empty()) BindToDevice(socket, vrf_device);
  BindToServerPort(socket);
  return std::make_unique<KernelSocket>(std::move(socket));
}

}  // namespace dhcp_manager
