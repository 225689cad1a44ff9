// Packets that the kernel writes straight into memory shared with it (PACKET_RX_RING, TPACKET_V2):
// none costs a system call or a copy of its own.

#ifndef DHCP_MANAGER_DATAPATH_PACKET_RING_H_
#define DHCP_MANAGER_DATAPATH_PACKET_RING_H_

#include <linux/if_packet.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace dhcp_manager {

// Reads the frames of a ring.
class PacketRing {
 public:
  // A frame holds a packet of an ordinary Ethernet and its growth by our option.
  static constexpr std::size_t kFrameSize = 2048;

  struct Packet {
    std::uint8_t* data;    // from the IPv4 header on; may be changed until Release
    std::size_t size;      // of what is here
    std::size_t capacity;  // what there is room for from `data` on
    int link;              // index of the interface it came in through
    bool truncated;        // it was larger than a frame of the ring
    bool unverified;       // its checksum has not been verified yet
  };

  // `memory` is shared with the kernel: at least two frames, aligned as tpacket2_hdr is. It must
  // outlive the ring.
  explicit PacketRing(std::span<std::uint8_t> memory);

  // The next packet; nothing when none waits, or when every frame but one is unreleased.
  std::optional<Packet> Next();
  // Gives the frames of all packets returned so far back to the kernel.
  void Release();

 private:
  tpacket2_hdr& Frame(std::size_t index) const;
  std::size_t After(std::size_t index) const { return index + 1 == frames_ ? 0 : index + 1; }

  std::uint8_t* memory_;
  std::size_t frames_;
  std::size_t next_ = 0;      // frame that is read next
  std::size_t released_ = 0;  // first frame that is still ours
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_PACKET_RING_H_
