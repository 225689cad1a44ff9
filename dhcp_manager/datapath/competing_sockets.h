// Finds sockets of other processes that take replies meant for the relay.
//
// Sockets with SO_REUSEADDR may share a port. The kernel then gives each packet to the socket that
// fits it best: a socket for the packet's address comes before one for every address, and a socket
// bound to a device before one without.

#ifndef DHCP_MANAGER_DATAPATH_COMPETING_SOCKETS_H_
#define DHCP_MANAGER_DATAPATH_COMPETING_SOCKETS_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dhcp_manager/kernel/links.h"
#include "dhcp_manager/kernel/route_lookup.h"
#include "dhcp_manager/kernel/udp_sockets.h"
#include "dhcp_manager/table/forwarding.h"
#include "dhcp_manager/table/socket_faults.h"

namespace dhcp_manager {

// The inode of each VRF's socket.
using VrfInodes = std::map<VrfIfindex, std::uint32_t>;

// Those of `found` that take replies of a VRF which `own` names, and are not in it themselves.
// `hears_vrfs`: a socket without a device hears every VRF (net.ipv4.udp_l3mdev_accept).
std::vector<CompetingSocket> SelectCompeting(const std::vector<UdpSocket>& found,
                                             const VrfInodes& own, const Links& links,
                                             const Forwarding& forwarding, RouteLookup& routes,
                                             bool hears_vrfs);

class CompetingSockets {
 public:
  using Clock = std::chrono::steady_clock;
  using Report = std::function<void(const std::string& text)>;

  // `query` and `routes` must outlive it. `report` is called once for each socket that is found,
  // and once for each reason why none can be looked for.
  CompetingSockets(UdpSocketQuery& query, RouteLookup& routes, Report report)
      : query_(query), routes_(routes), report_(std::move(report)) {}

  // Looks for them.
  void Look(const VrfInodes& own, const Links& links, const Forwarding& forwarding,
            Clock::time_point now);
  // Whether the latest look was more than a moment ago: those who ask for the result must not keep
  // the relay busy.
  bool IsDue(Clock::time_point now) const { return !looked_ || now - *looked_ >= kInterval; }

  // Those that were found last.
  const std::vector<CompetingSocket>& found() const { return found_; }

 private:
  static constexpr std::chrono::milliseconds kInterval{500};

  void ReportNew();

  UdpSocketQuery& query_;
  RouteLookup& routes_;
  const Report report_;
  std::optional<Clock::time_point> looked_;
  std::vector<CompetingSocket> found_;
  std::set<std::uint32_t> reported_;  // inodes of those found last
  std::string error_;                 // why none could be looked for
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_COMPETING_SOCKETS_H_
