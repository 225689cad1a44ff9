// What the kernel's filters know and count, in memory shared with them, and the rule by which they
// share the packet ring among interfaces.
//
// The packets of one interface may take kShare times the room that is left: one interface that
// floods gets four fifths of the ring and leaves one fifth to all others, two get four ninths each
// and leave one ninth, and so on. Without a flood nothing is refused until the ring is nearly full.

#ifndef DHCP_MANAGER_DATAPATH_FILTER_TABLE_H_
#define DHCP_MANAGER_DATAPATH_FILTER_TABLE_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace dhcp_manager {

// Numbers are changed by the kernel and by the manager at the same time.
struct FilterMemory {
  // Interfaces are told apart by the low bits of their index.
  static constexpr std::size_t kLinks = 16384;
  static constexpr std::size_t kShare = 4;

  // Of one interface. All but `taken` are the kernel's to change.
  struct Link {
    std::uint64_t admitted;    // packets given to the ring
    std::uint64_t taken;       // of those, how many were taken from it
    std::uint64_t runts;       // refused: shorter than any message
    std::uint64_t over_share;  // refused: over the interface's share of the ring
  };

  std::uint64_t capacity;           // packets that the ring may hold
  std::uint64_t admitted;           // of all interfaces, as below
  std::uint64_t refused;            // runts and over_share of all interfaces
  std::uint64_t refused_datagrams;  // of UDP sockets: no BOOTREPLY
  std::uint64_t taken;              // packets whose room in the ring is free again
  std::array<Link, kLinks> links;
};

// The manager's view.
class FilterTable {
 public:
  // `memory` must outlive the table.
  explicit FilterTable(FilterMemory& memory) : memory_(&memory) {}

  // The ring has room for so many packets.
  void SetRoom(std::size_t packets) {
    // Filters on several processors may each admit one more than they should.
    Number(memory_->capacity) = packets - kReserve;
  }

  // A packet of that interface was taken from the ring.
  void Take(int link) { Number(LinkOf(link).taken).fetch_add(1, std::memory_order_relaxed); }
  // The room of so many packets is free again.
  void Release(std::size_t packets) {
    Number(memory_->taken).fetch_add(packets, std::memory_order_release);
  }
  // To be called when the ring was found empty, with all room free: a packet that the kernel lost
  // behind the filter would else count as waiting for ever.
  void OnEmpty() {
    const std::uint64_t waiting = Number(memory_->admitted) - Number(memory_->taken);
    if (static_cast<std::int64_t>(waiting) > kInFlight) Correct();
  }

  const FilterMemory::Link& LinkAt(std::size_t slot) const { return memory_->links[slot]; }
  static std::size_t SlotOf(int link) {
    return static_cast<std::size_t>(link) % FilterMemory::kLinks;
  }
  std::uint64_t refused() const { return Number(memory_->refused); }
  std::uint64_t refused_datagrams() const { return Number(memory_->refused_datagrams); }
  static std::uint64_t Read(const std::uint64_t& number) {
    return Number(const_cast<std::uint64_t&>(number));
  }

 private:
  static constexpr std::size_t kReserve = 128;
  // Packets that may be on their way from the filter to the ring.
  static constexpr std::int64_t kInFlight = 64;

  static std::atomic_ref<std::uint64_t> Number(std::uint64_t& number) {
    return std::atomic_ref(number);
  }
  FilterMemory::Link& LinkOf(int link) { return memory_->links[SlotOf(link)]; }

  void Correct() {
    for (FilterMemory::Link& link : memory_->links) Number(link.taken) = Read(link.admitted);
    Number(memory_->taken) = Read(memory_->admitted);
  }

  FilterMemory* memory_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_FILTER_TABLE_H_
