// The kernel's network interfaces and their IPv4 addresses, as far as the relay needs them.

#ifndef DHCP_MANAGER_KERNEL_LINKS_H_
#define DHCP_MANAGER_KERNEL_LINKS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nettypes/ipv4_addr.h>

#include "base/mac_address.h"

namespace dhcp_manager {

// Index of a VRF's device; kDefaultVrf stands for the default VRF, which has none.
using VrfIfindex = int;
inline constexpr VrfIfindex kDefaultVrf = 0;

struct Link {
  int index = 0;
  std::string name;
  bool up = false;         // administratively up, with a carrier as far as the driver knows
  base::MacAddress mac{};  // all zeros when it has no Ethernet address
  int master = 0;          // index of the device that it is enslaved to, 0 for none
  std::optional<std::uint32_t> vrf_table;  // of a VRF device

  bool operator==(const Link&) const = default;
};

struct LinkAddress {
  int link = 0;
  nettypes::IPv4Addr address;
  nettypes::IPv4Addr broadcast;  // as it was set; unspecified when it was not
  unsigned prefix_length = 32;
  bool secondary = false;  // another address of the same subnet came first (IFA_F_SECONDARY)

  auto operator<=>(const LinkAddress&) const = default;

  // The highest address of its subnet (RFC 919, section 7); unspecified when the prefix has no room
  // for one (RFC 3021).
  nettypes::IPv4Addr DirectedBroadcast() const;
};

// A snapshot: what the watcher saw last.
struct Links {
  std::map<int, Link> links;           // by index
  std::vector<LinkAddress> addresses;  // secondary ones behind all others, else the oldest first

  bool operator==(const Links&) const = default;

  // Puts the addresses in order: those that `before` holds as they are there, then the others as
  // they are here. An address whose lifetime is refreshed is reported anew, and must not fall back.
  void SortAddresses(const Links& before);

  // The device of the VRF whose routing table is `table`; nothing when there is none.
  std::optional<VrfIfindex> FindVrf(std::uint32_t table) const;
  // The VRF that a link belongs to.
  VrfIfindex VrfOf(const Link& link) const;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINKS_H_
