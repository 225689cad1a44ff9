#include "dhcp_manager/datapath/sockets.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <span>
#include <system_error>
#include <utility>

#include "base/service/log.h"
#include "base/socket_buffers.h"
#include "base/system_error.h"
#include "dhcp_manager/datapath/filters.h"
#include "dhcp_manager/datapath/headers.h"
#include "dhcp_manager/datapath/segmenting_socket.h"
#include "dhcp_manager/datapath/socket_option.h"

namespace dhcp_manager {
namespace {

using base::Descriptor;

// Room for bursts that arrive while the forwarding table is rebuilt.
constexpr int kBufferSize = 8 * 1024 * 1024;

// VRFs whose sockets have room for bursts, too.
constexpr std::size_t kPreparedVrfs = 16;

Descriptor MakeSocket(int family) {
  Descriptor socket(::socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) return socket;
  base::SetReceiveBuffer(socket.get(), kBufferSize);
  base::SetSendBuffer(socket.get(), kBufferSize);
  return socket;
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

// The socket of a VRF, which goes back to the pool.
class VrfBatchSocket final : public BatchSocket {
 public:
  VrfBatchSocket(VrfSocketPool& pool, Descriptor socket)
      : pool_(pool), socket_(std::move(socket)) {}
  ~VrfBatchSocket() override { pool_.GiveBack(socket_.Release()); }

  int fd() const override { return socket_.fd(); }
  std::size_t Receive(std::span<mmsghdr> messages) override { return socket_.Receive(messages); }
  std::size_t Send(std::span<mmsghdr> messages) override { return socket_.Send(messages); }
  std::uint64_t TakeDrops() override { return socket_.TakeDrops(); }

 private:
  VrfSocketPool& pool_;
  SegmentingSocket socket_;
};

std::optional<KernelFilters> LoadFilters() {
  try {
    return std::make_optional<KernelFilters>();
  } catch (const std::system_error& error) {
    base::LogError(std::string(error.what()) +
                   "; interfaces have no share of their own in front of the relay, and replies "
                   "that the kernel drops are not counted");
    return std::nullopt;
  }
}

// The packets that the kernel has dropped in front of a packet socket since the last question.
std::uint64_t TakeRingDrops(int fd) {
  tpacket_stats statistics{};
  socklen_t size = sizeof(statistics);
  if (getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0) return 0;
  return statistics.tp_drops;
}

}  // namespace

// Without the capability the client socket is opened when it is needed, and the failure reported
// then.
Sockets::Sockets()
    : filters_(LoadFilters()),
      client_(MakeSocket(AF_PACKET)),
      vrfs_(std::make_unique<VrfSocketPool>(kPreparedVrfs, kServerPort,
                                            [] { return MakeSocket(AF_INET); })) {}

ClientSocket Sockets::OpenClientSocket() {
  Descriptor socket = client_ ? std::move(client_) : MakeSocket(AF_PACKET);
  if (!socket) base::ThrowSystemError("cannot open a packet socket");
  if (filters_) {
    filters_->AttachToClients(socket.get());
  } else {
    AttachFilter(socket.get(), filter::kClientPackets);
  }
  constexpr int kOn = 1;
  SetOption(socket.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, kOn, "leave out what is sent");
  auto mapping = std::make_unique<RingMapping>(socket.get());
  if (filters_) filters_->table().SetRoom(mapping->memory().size() / PacketRing::kFrameSize);
  Listen(socket);
  const PacketRing ring(mapping->memory());
  return {.socket = std::make_unique<KernelSocket>(std::move(socket), &TakeRingDrops),
          .mapping = std::move(mapping),
          .ring = ring};
}

std::unique_ptr<BatchSocket> Sockets::OpenVrfSocket(const std::string& vrf_device) {
  auto socket = std::make_unique<VrfBatchSocket>(*vrfs_, vrfs_->Take(vrf_device));
  constexpr int kOn = 1;
  // The link that a reply came in through decides who may have sent it. In a VRF that is the link
  // itself and not the VRF's device (Linux 4.7).
  SetOption(socket->fd(), IPPROTO_IP, IP_PKTINFO, kOn, "ask for the interface of replies");
  if (filters_) {
    filters_->AttachToServers(socket->fd());
  } else {
    AttachFilter(socket->fd(), filter::kServerDatagrams);
  }
  // What was refused before that filter was there is not in its count.
  socket->TakeDrops();
  return socket;
}

}  // namespace dhcp_manager
