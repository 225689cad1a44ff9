// Packets that the kernel writes straight into memory shared with us (PACKET_RX_RING): none costs a
// system call or a copy of its own.

#ifndef DHCP_MANAGER_DATAPATH_PACKET_RING_H_
#define DHCP_MANAGER_DATAPATH_PACKET_RING_H_

#include <linux/if_packet.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace dhcp_manager {

class PacketRing {
 public:
  struct Packet {
    std::uint8_t* data;    // from the IPv4 header on; may be changed until Release
    std::size_t size;      // of what is here
    std::size_t capacity;  // what there is room for from `data` on
    int link;              // index of the interface it came in through
    bool truncated;        // it was larger than a frame of the ring
    bool unverified;       // nobody has looked at its checksum
  };

  // Sets the ring of a packet socket up and maps it. Throws std::system_error.
  explicit PacketRing(int fd);
  ~PacketRing();
  PacketRing(const PacketRing&) = delete;
  PacketRing& operator=(const PacketRing&) = delete;

  // The next packet, if there is one.
  std::optional<Packet> Next();
  // Gives the frames of all packets taken so far back to the kernel.
  void Release();

 private:
  tpacket2_hdr& Frame(std::size_t index) const;

  std::uint8_t* memory_ = nullptr;
  std::size_t next_ = 0;      // frame that is read next
  std::size_t released_ = 0;  // first frame that is still ours
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_PACKET_RING_H_
