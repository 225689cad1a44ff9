// The relay table and the kernel's links put together: for every configured interface, where its
// packets come in, with what settings, and where they go. Built anew after every change of either.

#ifndef DHCP_MANAGER_FORWARDING_H_
#define DHCP_MANAGER_FORWARDING_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "links.h"
#include "nettypes/ipv4_addr.h"
#include "packet/relay_packet.h"
#include "relay_table.h"

namespace dhcp_manager {

// Why an interface does or does not relay.
enum class PortState : std::uint8_t {
  kUp,
  kDown,       // its kernel interface is
  kMissing,    // no kernel interface has its address in the instance's VRF
  kNoAddress,  // none is configured
  kNoVrf,      // the kernel has no device for the instance's VRF
  kShadowed,   // another instance relays for its address already
};

// "up", "down", "missing", "no-address", "no-vrf" or "shadowed".
const char* Name(PortState state);

inline constexpr VrfIndex kUnknownVrf = -1;

// The relaying end of an instance.
struct Service {
  std::string instance;
  VrfIndex vrf = kDefaultVrf;  // kUnknownVrf while the kernel has no device for it
  std::string vrf_device;      // its name; empty for none
  std::vector<nettypes::IPv4Addr> servers;
};

// A configured layer-3 interface.
struct Port {
  RelayPort relay;
  const Service* service = nullptr;
  std::string name;
  std::optional<std::uint16_t> vlan;
  PortState state = PortState::kMissing;
  int link = 0;           // index of its kernel interface; 0 for none
  std::string link_name;  // empty for none
  nettypes::IPv4Addr broadcast;

  // Whether packets pass, as far as configuration tells: a link that is down needs no care.
  bool usable() const { return state == PortState::kUp || state == PortState::kDown; }
};

using PortIndex = std::uint32_t;

class Forwarding {
 public:
  Forwarding() = default;
  Forwarding(const RelayTable& table, const Links& links);
  Forwarding(Forwarding&&) noexcept = default;
  Forwarding& operator=(Forwarding&&) noexcept = default;
  Forwarding(const Forwarding&) = delete;
  Forwarding& operator=(const Forwarding&) = delete;

  // By instance, then by name.
  const std::vector<Port>& ports() const { return ports_; }
  const std::deque<Service>& services() const { return services_; }

  // The port of a request that came in through `link` for `destination`: the one of that address,
  // or the one of the link's first address. Null when the link relays for nobody.
  const Port* FindByLink(int link, nettypes::IPv4Addr destination) const;
  // The port of a reply in `vrf`.
  const Port* FindByAddress(VrfIndex vrf, nettypes::IPv4Addr giaddr) const;

  // Every address of this device in `vrf`, as in_addr::s_addr.
  const std::unordered_set<std::uint32_t>& OwnAddresses(VrfIndex vrf) const;

  // Whether what comes in through the port for `destination` is for the relay: a broadcast, or an
  // address of this device. Anything else is only on its way through.
  bool IsForUs(const Port& port, nettypes::IPv4Addr destination) const;

  // The routing domains that packets pass in, with the names of their devices; the name of the
  // default one is empty.
  const std::map<VrfIndex, std::string>& vrfs() const { return vrfs_; }

 private:
  void AddInstance(const std::string& name, const Instance& instance, const Links& links);
  void AddPort(const Service* service, const std::string& name, const Instance& instance,
               const Links& links);
  void Attach(Port& port, const Links& links);
  void IndexByLink(const Links& links);

  std::deque<Service> services_;
  std::vector<Port> ports_;
  std::unordered_map<int, std::vector<PortIndex>> by_link_;
  std::unordered_map<std::uint64_t, PortIndex> by_address_;
  std::unordered_map<VrfIndex, std::unordered_set<std::uint32_t>> own_addresses_;
  std::unordered_multimap<std::uint32_t, const LinkAddress*> owners_;  // while it is built
  std::map<VrfIndex, std::string> vrfs_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_FORWARDING_H_
