// Routes that a test decides.

#ifndef TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_ROUTES_H_
#define TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_ROUTES_H_

#include <cstddef>
#include <set>
#include <tuple>

#include "dhcp_manager/kernel/route_lookup.h"

namespace tests {

class ScriptedRoutes final : public dhcp_manager::RouteLookup {
 public:
  bool LeadsTo(dhcp_manager::VrfIfindex vrf, nettypes::IPv4Addr address, int link) override {
    ++questions;
    return routes.contains({vrf, address, link});
  }

  std::set<std::tuple<dhcp_manager::VrfIfindex, nettypes::IPv4Addr, int>> routes;
  std::size_t questions = 0;
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_ROUTES_H_
