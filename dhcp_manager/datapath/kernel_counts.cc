#include "dhcp_manager/datapath/kernel_counts.h"

#include <cstddef>
#include <utility>

namespace dhcp_manager {
namespace {

constexpr int kNoLink = 0;

// By slot of the filter table: the link that relays. Links of one slot share it, the first counts.
std::vector<int> LinksBySlot(const Forwarding& forwarding) {
  std::vector<int> links(FilterMemory::kLinks, kNoLink);
  for (const RelayInterface& interface : forwarding.interfaces()) {
    int& link = links[FilterTable::SlotOf(interface.link)];
    if (link == kNoLink) link = interface.link;
  }
  return links;
}

}  // namespace

KernelCounts::KernelCounts(FilterTable* table, Counters& counters)
    : table_(table), counters_(counters) {
  if (table_ == nullptr) return;
  counters_.kernel_drops().replies = 0;
  refused_by_slot_.resize(FilterMemory::kLinks);
}

void KernelCounts::Collect(RelaySockets& sockets, const Forwarding& forwarding) {
  if (ClientSocket* const client = sockets.client()) {
    counters_.kernel_drops().requests += client->socket->TakeDrops();
  }
  sockets.ForEachVrf([this](VrfSocket& socket) { datagrams_ += socket.socket->TakeDrops(); });
  if (table_ == nullptr) return;
  CountReplies();
  CollectRefused(forwarding);
}

// The filter counts a datagram that it refuses, then the socket does: read in the opposite order,
// the difference is never more than the replies that were dropped.
void KernelCounts::CountReplies() {
  const std::uint64_t refused = table_->refused_datagrams();
  if (datagrams_ <= refused + replies_) return;
  *counters_.kernel_drops().replies += datagrams_ - refused - replies_;
  replies_ = datagrams_ - refused;
}

void KernelCounts::CollectRefused(const Forwarding& forwarding) {
  if (table_ == nullptr) return;
  const std::uint64_t refused = table_->refused();
  if (refused == refused_) return;
  refused_ = refused;
  const std::vector<int> links = LinksBySlot(forwarding);
  for (std::size_t slot = 0; slot < FilterMemory::kLinks; ++slot) {
    CountRefused(links[slot], TakeRefused(slot), forwarding);
  }
}

void KernelCounts::CountRefused(int link, const Refused& refused, const Forwarding& forwarding) {
  const std::uint64_t all = refused.runts + refused.over_share;
  if (all == 0) return;
  const RelayInterface* const interface = forwarding.FindByLink(link, {});
  if (interface == nullptr) {
    counters_.unmatched().Count(control::UnmatchedOutcome::kNoInterface, all);
    return;
  }
  InterfaceCounters& counters = counters_.Interface(interface->instance->name, interface->name);
  counters.requests += all;
  counters.Count(control::RequestOutcome::kMalformed, refused.runts);
  counters.Count(control::RequestOutcome::kOverShare, refused.over_share);
}

KernelCounts::Refused KernelCounts::TakeRefused(std::size_t slot) {
  const FilterMemory::Link& link = table_->LinkAt(slot);
  const Refused now{.runts = FilterTable::Read(link.runts),
                    .over_share = FilterTable::Read(link.over_share)};
  const Refused before = std::exchange(refused_by_slot_[slot], now);
  return {.runts = now.runts - before.runts, .over_share = now.over_share - before.over_share};
}

}  // namespace dhcp_manager
