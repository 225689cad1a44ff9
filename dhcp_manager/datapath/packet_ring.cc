#include "dhcp_manager/datapath/packet_ring.h"

#include <sys/mman.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>

#include "base/system_error.h"

namespace dhcp_manager {
namespace {

// A frame holds what an Ethernet of usual size carries, and the growth by our option; together they
// are room for bursts of thousands of packets.
constexpr unsigned kFrameSize = 2048;
constexpr unsigned kBlockSize = 64 * 1024;
constexpr unsigned kBlocks = 128;
constexpr unsigned kFrames = kBlocks * (kBlockSize / kFrameSize);
constexpr std::size_t kMemory = std::size_t{kBlocks} * kBlockSize;

std::size_t After(std::size_t index) { return (index + 1) % kFrames; }

}  // namespace

PacketRing::PacketRing(int fd) {
  constexpr int kVersion = TPACKET_V2;
  if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &kVersion, sizeof(kVersion)) != 0) {
    base::ThrowSystemError("cannot choose the layout of the packet ring");
  }
  const tpacket_req request{.tp_block_size = kBlockSize,
                            .tp_block_nr = kBlocks,
                            .tp_frame_size = kFrameSize,
                            .tp_frame_nr = kFrames};
  if (setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &request, sizeof(request)) != 0) {
    base::ThrowSystemError("cannot make the packet ring");
  }
  void* const memory = mmap(nullptr, kMemory, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory == MAP_FAILED) base::ThrowSystemError("cannot map the packet ring");
  memory_ = static_cast<std::uint8_t*>(memory);
}

PacketRing::~PacketRing() { munmap(memory_, kMemory); }

tpacket2_hdr& PacketRing::Frame(std::size_t index) const {
  return *reinterpret_cast<tpacket2_hdr*>(memory_ + index * kFrameSize);
}

std::optional<PacketRing::Packet> PacketRing::Next() {
  tpacket2_hdr& frame = Frame(next_);
  // The kernel writes the status last, and we do before it may write again.
  const std::uint32_t status = std::atomic_ref(frame.tp_status).load(std::memory_order_acquire);
  if ((status & TP_STATUS_USER) == 0 || After(next_) == released_) return std::nullopt;
  next_ = After(next_);
  auto* const start = reinterpret_cast<std::uint8_t*>(&frame);
  const auto* const from =
      reinterpret_cast<const sockaddr_ll*>(start + TPACKET_ALIGN(sizeof(tpacket2_hdr)));
  const std::size_t capacity = kFrameSize - frame.tp_net;
  return Packet{.data = start + frame.tp_net,
                .size = std::min<std::size_t>(frame.tp_snaplen, capacity),
                .capacity = capacity,
                .link = from->sll_ifindex,
                .truncated = frame.tp_snaplen < frame.tp_len,
                .unverified = (status & (TP_STATUS_CSUMNOTREADY | TP_STATUS_CSUM_VALID)) == 0};
}

void PacketRing::Release() {
  for (; released_ != next_; released_ = After(released_)) {
    std::atomic_ref(Frame(released_).tp_status).store(TP_STATUS_KERNEL, std::memory_order_release);
  }
}

}  // namespace dhcp_manager
