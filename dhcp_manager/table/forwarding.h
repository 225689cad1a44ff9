// The relay table combined with the kernel's links: for every configured interface its kernel
// interface, its settings in force and its servers. Made anew after a change of the relay table;
// follows the links.

#ifndef DHCP_MANAGER_TABLE_FORWARDING_H_
#define DHCP_MANAGER_TABLE_FORWARDING_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <nettypes/ipv4_addr.h>

#include "dhcp_manager/kernel/links.h"
#include "dhcp_manager/packet/relay_packet.h"
#include "dhcp_manager/table/relay_table.h"
#include "dhcp_manager/table/trust.h"
#include "protocol/control/interface_state.h"

namespace dhcp_manager {

using dhcp_relay::control::InterfaceState;

inline constexpr VrfIfindex kUnknownVrf = -1;

// A relay instance as packets need it.
struct RelayInstance {
  std::string name;
  VrfIfindex vrf = kDefaultVrf;  // kUnknownVrf while the kernel has no device for it
  std::string vrf_device;        // its name; empty for none
  std::vector<nettypes::IPv4Addr> servers;
};

// A configured layer-3 interface.
struct RelayInterface {
  RelayParameters relay;
  const RelayInstance* instance = nullptr;
  std::string name;
  std::optional<std::uint16_t> vlan;
  InterfaceState state = InterfaceState::kMissing;
  int link = 0;           // index of its kernel interface; 0 for none
  std::string link_name;  // empty for none
  // Of its subnet: as the kernel has it, and by its prefix; unspecified for none.
  nettypes::IPv4Addr broadcast;
  nettypes::IPv4Addr directed_broadcast;

  // Whether the interface relays whenever its link is up.
  bool usable() const { return state == InterfaceState::kUp || state == InterfaceState::kDown; }
  // Whether everybody in its subnet is addressed by that.
  bool IsBroadcast(nettypes::IPv4Addr destination) const {
    return !destination.is_unspecified() &&
           (destination == broadcast || destination == directed_broadcast);
  }
};

using InterfaceIndex = std::uint32_t;

class Forwarding {
 public:
  Forwarding() = default;
  Forwarding(const RelayTable& table, const Links& links, const Trust& trust = {});
  Forwarding(Forwarding&&) noexcept = default;
  Forwarding& operator=(Forwarding&&) noexcept = default;
  Forwarding(const Forwarding&) = delete;
  Forwarding& operator=(const Forwarding&) = delete;

  struct Updated {
    std::size_t interfaces = 0;  // that were brought up to date
    bool vrfs = false;           // whether vrfs() differs
  };
  // Follows what has changed in `links`, at a cost that depends on that alone. The VRFs of the
  // instances stay as they are: after Changes::vrfs the table must be made anew.
  Updated Update(const Links& links, const Links::Changes& changes);

  // By instance, then by name.
  const std::vector<RelayInterface>& interfaces() const { return interfaces_; }
  const std::deque<RelayInstance>& instances() const { return instances_; }
  const Trust& trust() const { return trust_; }

  // The interface of a request that came in through `link` for `destination`: the one of that
  // address or of that subnet's broadcast, else the one of the link's first address. Null when the
  // link relays for nobody.
  const RelayInterface* FindByLink(int link, nettypes::IPv4Addr destination) const;
  // Whether the link relays for somebody.
  bool ServesClients(int link) const { return by_link_.contains(link); }
  // The interface of a reply in `vrf`.
  const RelayInterface* FindByAddress(VrfIfindex vrf, nettypes::IPv4Addr giaddr) const;

  // Every address of this device in `vrf`. Follows the links, too, when `vrf` is an instance's.
  const AddressSet& OwnAddresses(VrfIfindex vrf) const;

  // Whether a packet that came in through the interface for `destination` is for the relay: to a
  // broadcast address, or to an address of this device. Anything else is transit traffic.
  bool IsForUs(const RelayInterface& interface, nettypes::IPv4Addr destination) const;

  // The VRFs of the interfaces that are usable, with the names of their devices; the name of the
  // default VRF is empty.
  const std::map<VrfIfindex, std::string>& vrfs() const { return vrfs_; }

 private:
  // The interfaces that have one address in one VRF. The first is the one that relays.
  using SameAddress = std::vector<InterfaceIndex>;

  void AddInstance(const std::string& name, const Instance& instance, const Links& links);
  void AddInterface(const RelayInstance& relay_instance, const std::string& name,
                    const Instance& instance);
  // Finds the kernel interface of the interfaces with that address, or that there is none. Adds the
  // links whose interfaces may differ to `links_to_index`.
  Updated UpdateAddress(const Links& links, const VrfAddress& address,
                        std::unordered_set<int>& links_to_index);
  // Whether vrfs() differs then, as of the next.
  bool Attach(RelayInterface& interface, const Links& links, const LinkAddress* owner);
  void UpdateOwnAddresses(const VrfAddress& address, bool owned);
  bool CountUsable(const RelayInstance& instance, bool usable);
  // A link's interfaces in the order of its addresses.
  void IndexLink(const Links& links, int index);

  Trust trust_;
  std::deque<RelayInstance> instances_;
  std::vector<RelayInterface> interfaces_;
  std::unordered_map<VrfAddress, SameAddress, VrfAddress::Hash> by_address_;
  std::unordered_map<int, std::vector<InterfaceIndex>> by_link_;
  std::unordered_map<VrfIfindex, AddressSet> own_addresses_;
  std::map<VrfIfindex, std::string> vrfs_;
  std::unordered_map<VrfIfindex, std::size_t> usable_;  // interfaces, by VRF
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_FORWARDING_H_
