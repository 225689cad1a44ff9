// Remembers where the kernel's routes lead, until one of them changes.
//
// The kernel is asked when an answer is missing, so that an address nobody asks about costs
// nothing. Its changes wake up the loop once after each such question, and not again: a router
// whose routes change all the time is not kept busy here.

#ifndef DHCP_MANAGER_KERNEL_ROUTE_CACHE_H_
#define DHCP_MANAGER_KERNEL_ROUTE_CACHE_H_

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <vxmw/event.h>

#include "base/service/log.h"
#include "dhcp_manager/kernel/route_lookup.h"
#include "dhcp_manager/kernel/route_query.h"

namespace dhcp_manager {

class RouteCache final : public RouteLookup {
 public:
  RouteCache(vxmw_t* mw, std::unique_ptr<RouteQuery> query);

  bool LeadsTo(VrfIfindex vrf, nettypes::IPv4Addr address, int link) override;

  // Drops every answer, for when the addresses that are asked about change.
  void Forget();

 private:
  using Key = std::pair<VrfIfindex, nettypes::IPv4Addr>;

  // Lines at once for questions without an answer, and the time between two lines after that.
  static constexpr double kLoggedFailures = 1;
  static constexpr std::chrono::seconds kFailureInterval{10};

  void Watch();
  // Nothing when the kernel does not answer.
  std::optional<std::vector<int>> Ask(VrfIfindex vrf, nettypes::IPv4Addr address);

  const std::unique_ptr<RouteQuery> query_;
  vxmw::IoSource events_;
  bool watching_ = false;
  base::LimitedLog failures_{kLoggedFailures, kFailureInterval};
  std::map<Key, std::vector<int>> links_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_ROUTE_CACHE_H_
