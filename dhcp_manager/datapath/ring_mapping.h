// The memory of a packet socket's ring.

#ifndef DHCP_MANAGER_DATAPATH_RING_MAPPING_H_
#define DHCP_MANAGER_DATAPATH_RING_MAPPING_H_

#include <cstdint>
#include <span>

namespace dhcp_manager {

class RingMapping {
 public:
  // Sets up the ring of a packet socket and maps it: frames of PacketRing::kFrameSize, enough for a
  // burst of thousands of packets. Throws std::system_error.
  explicit RingMapping(int fd);
  ~RingMapping();
  RingMapping(const RingMapping&) = delete;
  RingMapping& operator=(const RingMapping&) = delete;

  std::span<std::uint8_t> memory() const { return memory_; }

 private:
  std::span<std::uint8_t> memory_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_RING_MAPPING_H_
