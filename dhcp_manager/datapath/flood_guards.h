// The flood guard: limits the requests that each relay interface may send.

#ifndef DHCP_MANAGER_DATAPATH_FLOOD_GUARDS_H_
#define DHCP_MANAGER_DATAPATH_FLOOD_GUARDS_H_

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "base/token_bucket.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"

namespace dhcp_manager {

class FloodGuards {
 public:
  using Clock = base::TokenBucket::Clock;

  // Without a limit there are no guards.
  explicit FloodGuards(std::optional<base::RateLimit> limit) : limit_(limit) {}

  bool enabled() const { return limit_.has_value(); }

  // The interface's guard, full when it is new; null when there are none. Valid until Synchronise
  // drops it.
  base::TokenBucket* Of(const RelayInterface& interface, Clock::time_point now) {
    if (!limit_) return nullptr;
    return &guards_.try_emplace({interface.instance->name, interface.name}, *limit_, now)
                .first->second;
  }

  // Drops the guards of interfaces that have no counters any more.
  void Synchronise(const Counters& counters) {
    std::erase_if(guards_, [&counters](const auto& entry) {
      const auto& [instance_name, interface_name] = entry.first;
      const auto instance = counters.instances().find(instance_name);
      return instance == counters.instances().end() ||
             !instance->second.interfaces.contains(interface_name);
    });
  }

 private:
  const std::optional<base::RateLimit> limit_;
  std::map<std::pair<std::string, std::string>, base::TokenBucket> guards_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_FLOOD_GUARDS_H_
