#include "dhcp_manager/table/counters.h"

#include <type_traits>

namespace dhcp_manager {
namespace {

// Makes the keys of `counters` those of `configured`.
template <typename CounterMap, typename Container>
void SynchroniseKeys(CounterMap& counters, const Container& configured) {
  std::erase_if(counters, [&](const auto& entry) { return !configured.contains(entry.first); });
  for (const auto& item : configured) {
    if constexpr (std::is_same_v<std::decay_t<decltype(item)>, nettypes::IPv4Addr>) {
      counters.try_emplace(item);
    } else {
      counters.try_emplace(item.first);
    }
  }
}

}  // namespace

void Counters::Synchronise(const RelayTable& table) {
  SynchroniseKeys(instances_, table.instances());
  for (auto& [name, counters] : instances_) {
    const Instance& instance = table.instances().at(name);
    SynchroniseKeys(counters.interfaces, instance.interfaces);
    SynchroniseKeys(counters.servers, instance.servers);
  }
}

void Counters::Clear() {
  unmatched_ = {};
  const bool counts_replies = kernel_drops_.replies.has_value();
  kernel_drops_ = {};
  if (counts_replies) kernel_drops_.replies = 0;
  for (auto& [name, instance] : instances_) {
    for (auto& [interface, counters] : instance.interfaces) counters = {};
    for (auto& [server, counters] : instance.servers) counters = {};
  }
}

}  // namespace dhcp_manager
