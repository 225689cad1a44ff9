#include "dhcp_manager/datapath/ring_mapping.h"

#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include "base/system_error.h"
#include "dhcp_manager/datapath/packet_ring.h"

namespace dhcp_manager {
namespace {

constexpr unsigned kFrameSize = PacketRing::kFrameSize;
constexpr unsigned kBlockSize = 64 * 1024;
constexpr unsigned kBlocks = 164;
constexpr std::size_t kMemory = std::size_t{kBlocks} * kBlockSize;

}  // namespace

RingMapping::RingMapping(int fd) {
  constexpr int kVersion = TPACKET_V2;
  if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &kVersion, sizeof(kVersion)) != 0) {
    base::ThrowSystemError("cannot choose the layout of the packet ring");
  }
  const tpacket_req request{.tp_block_size = kBlockSize,
                            .tp_block_nr = kBlocks,
                            .tp_frame_size = kFrameSize,
                            .tp_frame_nr = kBlocks * (kBlockSize / kFrameSize)};
  if (setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &request, sizeof(request)) != 0) {
    base::ThrowSystemError("cannot make the packet ring");
  }
  void* const memory = mmap(nullptr, kMemory, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory == MAP_FAILED) base::ThrowSystemError("cannot map the packet ring");
  memory_ = {static_cast<std::uint8_t*>(memory), kMemory};
}

RingMapping::~RingMapping() { munmap(memory_.data(), memory_.size()); }

}  // namespace dhcp_manager
