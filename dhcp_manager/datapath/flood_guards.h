// The flood guards: limit the requests that each relay interface, and each client, may send.

#ifndef DHCP_MANAGER_DATAPATH_FLOOD_GUARDS_H_
#define DHCP_MANAGER_DATAPATH_FLOOD_GUARDS_H_

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "base/token_bucket.h"
#include "dhcp_manager/datapath/client_guard.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"

namespace dhcp_manager {

// What is not set is not limited.
struct FloodLimits {
  std::optional<base::RateLimit> interface = std::nullopt;  // all requests of an interface
  std::optional<base::RateLimit> discover = std::nullopt;   // its DHCPDISCOVERs
  std::optional<base::RateLimit> client =
      std::nullopt;  // all requests of one client of an interface

  bool any() const { return interface || discover || client; }
};

// Of one interface. What is not limited has no bucket.
struct InterfaceGuard {
  std::optional<base::TokenBucket> requests;
  std::optional<base::TokenBucket> discovers;
};

class FloodGuards {
 public:
  using Clock = base::TokenBucket::Clock;

  explicit FloodGuards(const FloodLimits& limits) : limits_(limits) {
    if (limits.client) clients_.emplace(*limits.client);
  }

  bool enabled() const { return limits_.any(); }

  // The interface's guard, full when it is new; null when there are no limits. Valid until
  // Synchronise drops it.
  InterfaceGuard* Of(const RelayInterface& interface, Clock::time_point now) {
    if (!enabled()) return nullptr;
    return &guards_.try_emplace({interface.instance->name, interface.name}, MakeGuard(now))
                .first->second;
  }

  // The guard of all clients; null when they have no limit.
  ClientGuard* clients() { return clients_ ? &*clients_ : nullptr; }

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
  static std::optional<base::TokenBucket> MakeBucket(const std::optional<base::RateLimit>& limit,
                                                     Clock::time_point now) {
    return limit ? std::make_optional<base::TokenBucket>(*limit, now) : std::nullopt;
  }
  InterfaceGuard MakeGuard(Clock::time_point now) const {
    return {.requests = MakeBucket(limits_.interface, now),
            .discovers = MakeBucket(limits_.discover, now)};
  }

  const FloodLimits limits_;
  std::optional<ClientGuard> clients_;
  std::map<std::pair<std::string, std::string>, InterfaceGuard> guards_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_FLOOD_GUARDS_H_
