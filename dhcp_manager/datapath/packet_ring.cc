#include "dhcp_manager/datapath/packet_ring.h"

#include <algorithm>
#include <atomic>

namespace dhcp_manager {

PacketRing::PacketRing(std::span<std::uint8_t> memory)
    : memory_(memory.data()), frames_(memory.size() / kFrameSize) {}

tpacket2_hdr& PacketRing::Frame(std::size_t index) const {
  return *reinterpret_cast<tpacket2_hdr*>(memory_ + index * kFrameSize);
}

std::optional<PacketRing::Packet> PacketRing::Next() {
  tpacket2_hdr& frame = Frame(next_);
  // The kernel writes the status last; Release writes it before the kernel may write again.
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
