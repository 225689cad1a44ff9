#include "counters.h"

#include <type_traits>

namespace dhcp_manager {
namespace {

constexpr std::array<const char*, kRequestFates> kRequestNames{
    "relayed",     "malformed", "too-many-hops", "own-giaddr", "untrusted-option",
    "policy-drop", "flood",     "no-server",     "send-failed"};
constexpr std::array<const char*, kReplyFates> kReplyNames{"relayed", "malformed", "no-option",
                                                           "foreign-option", "send-failed"};
constexpr std::array<const char*, kStrayFates> kStrayNames{"no-interface", "not-for-us",
                                                           "unknown-giaddr", "malformed"};

// Makes the keys of `counters` those of `configured`.
template <typename CounterMap, typename Container>
void KeepKeys(CounterMap& counters, const Container& configured) {
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

const char* Name(RequestFate fate) { return kRequestNames.at(static_cast<std::size_t>(fate)); }
const char* Name(ReplyFate fate) { return kReplyNames.at(static_cast<std::size_t>(fate)); }
const char* Name(StrayFate fate) { return kStrayNames.at(static_cast<std::size_t>(fate)); }

void Counters::Keep(const RelayTable& table) {
  KeepKeys(instances_, table.instances());
  for (auto& [name, counters] : instances_) {
    const Instance& instance = table.instances().at(name);
    KeepKeys(counters.interfaces, instance.interfaces);
    KeepKeys(counters.servers, instance.servers);
  }
}

void Counters::Clear() {
  strays_ = {};
  for (auto& [name, instance] : instances_) {
    for (auto& [interface, counters] : instance.interfaces) counters = {};
    for (auto& [server, counters] : instance.servers) counters = {};
  }
}

}  // namespace dhcp_manager
