// The memory of a packet ring with a script in the kernel's place.

#ifndef TESTS_UNIT_DHCP_MANAGER_DATAPATH_RING_MEMORY_H_
#define TESTS_UNIT_DHCP_MANAGER_DATAPATH_RING_MEMORY_H_

#include <linux/if_packet.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "dhcp_manager/datapath/packet_ring.h"

namespace tests {

class RingMemory {
 public:
  static constexpr std::size_t kFrameSize = dhcp_manager::PacketRing::kFrameSize;
  static constexpr std::size_t kData = 96;  // where a packet begins in its frame

  struct Frame {
    int link = 0;
    std::uint32_t status = TP_STATUS_CSUM_VALID;  // beside TP_STATUS_USER
    std::size_t cut = 0;                          // bytes of the packet that the frame lacks
  };

  explicit RingMemory(std::size_t frames) : frames_(frames) {}

  std::span<std::uint8_t> memory() {
    return {frames_[0].bytes.data(), frames_.size() * kFrameSize};
  }

  // Whether the frame that the kernel fills next is free.
  bool HasRoom() const { return Header(next_).tp_status == TP_STATUS_KERNEL; }

  // False when there is no room: the kernel drops the packet then.
  bool Write(const std::vector<std::uint8_t>& packet, const Frame& frame) {
    if (!HasRoom()) return false;
    std::uint8_t* const start = frames_[next_].bytes.data();
    const std::size_t size = packet.size() - frame.cut;
    std::copy_n(packet.begin(), size, start + kData);
    sockaddr_ll from{};
    from.sll_ifindex = frame.link;
    std::memcpy(start + TPACKET_ALIGN(sizeof(tpacket2_hdr)), &from, sizeof(from));
    tpacket2_hdr& header = Header(next_);
    header.tp_net = kData;
    header.tp_snaplen = static_cast<std::uint32_t>(size);
    header.tp_len = static_cast<std::uint32_t>(packet.size());
    header.tp_status = TP_STATUS_USER | frame.status;
    next_ = (next_ + 1) % frames_.size();
    return true;
  }

 private:
  struct alignas(64) Memory {
    std::array<std::uint8_t, kFrameSize> bytes{};
  };

  tpacket2_hdr& Header(std::size_t index) {
    return *reinterpret_cast<tpacket2_hdr*>(frames_[index].bytes.data());
  }
  const tpacket2_hdr& Header(std::size_t index) const {
    return *reinterpret_cast<const tpacket2_hdr*>(frames_[index].bytes.data());
  }

  std::vector<Memory> frames_;
  std::size_t next_ = 0;
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_DATAPATH_RING_MEMORY_H_
