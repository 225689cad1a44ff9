// The kernel's network interfaces and their IPv4 addresses, as far as the relay needs them.

#ifndef DHCP_MANAGER_KERNEL_LINKS_H_
#define DHCP_MANAGER_KERNEL_LINKS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
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
  bool secondary = false;     // another address of the same subnet came first (IFA_F_SECONDARY)
  unsigned scope = 0;         // RT_SCOPE_UNIVERSE, RT_SCOPE_LINK and so on
  nettypes::IPv4Addr peer{};  // the other end of a point-to-point link; else the address

  auto operator<=>(const LinkAddress&) const = default;

  // The highest address of its subnet (RFC 919, section 7); unspecified when the prefix has no room
  // for one (RFC 3021).
  nettypes::IPv4Addr DirectedBroadcast() const;
};

// An address is another one in each VRF.
struct VrfAddress {
  VrfIfindex vrf = kDefaultVrf;
  nettypes::IPv4Addr address;

  bool operator==(const VrfAddress&) const = default;

  struct Hash {
    std::size_t operator()(const VrfAddress& value) const {
      constexpr unsigned kAddressBits = 32;
      return std::hash<std::uint64_t>()(static_cast<std::uint64_t>(value.vrf) << kAddressBits |
                                        value.address.host_order());
    }
  };
};

// Each change costs the same however many links there are.
class Links {
 public:
  // What differs from before.
  struct Changes {
    std::unordered_set<int> links;  // whose own values or addresses differ
    // Whose owner differs, or the owner's values.
    std::unordered_set<VrfAddress, VrfAddress::Hash> addresses;
    bool vrfs = false;  // a VRF device has come, gone, or got another name or table

    bool empty() const { return links.empty() && addresses.empty() && !vrfs; }
  };

  void SetLink(const Link& link);
  // With its addresses.
  void RemoveLink(int index);
  // Adds the address, or changes the one of the same link, address, prefix and peer, which keeps
  // its place: the kernel reports an address anew when its lifetime is refreshed.
  void SetAddress(const LinkAddress& address);
  void RemoveAddress(const LinkAddress& address);
  // Makes these equal to `fresh`, the order of addresses too.
  void ReplaceBy(const Links& fresh);

  // Null when there is none.
  const Link* Find(int index) const;
  // In the kernel's order: secondary ones behind all others; the wider scope last; else the oldest
  // first.
  const std::vector<LinkAddress>& AddressesOf(int index) const;
  // That address on a link that is up rather than on one that is down, then on the one with the
  // lowest index; the first of that link. Null when no link has it.
  const LinkAddress* FindOwner(const VrfAddress& address) const;
  // The device of the VRF whose routing table is `table`; nothing when there is none.
  std::optional<VrfIfindex> FindVrf(std::uint32_t table) const;
  // The VRF that a link belongs to.
  VrfIfindex VrfOf(const Link& link) const;

  std::size_t size() const { return entries_.size(); }
  template <typename Visit>
  void ForEachAddress(Visit visit) const {
    for (const auto& [address, owners] : owners_) visit(address);
  }

  // Since the last call.
  Changes TakeChanges() { return std::exchange(changes_, {}); }

  // Without the changes.
  bool operator==(const Links& other) const { return entries_ == other.entries_; }

 private:
  struct Entry {
    std::optional<Link> link;  // nothing while only an address of it has been reported
    std::vector<LinkAddress> addresses;

    bool operator==(const Entry&) const = default;
  };
  using Owner = std::pair<bool, int>;  // whether it is down, and its index

  // Puts the link's addresses among those of its VRF, or takes them out. To be called around every
  // change of what VrfOf and FindOwner make of it.
  void AddOwned(const Entry& entry);
  void RemoveOwned(const Entry& entry);
  void AddOwner(const Entry& entry, const LinkAddress& address);
  void RemoveOwner(const Entry& entry, const LinkAddress& address);
  void SetLink(Entry& entry, std::optional<Link> link);
  void SetEnslaved(const Entry& entry, bool enslaved);
  void SetVrfDevice(const Entry& entry, bool exists);
  void SetAddresses(int index, const std::vector<LinkAddress>& addresses);
  // The links whose VRF may depend on that link: those enslaved to it.
  std::vector<const Entry*> EnslavedTo(int index) const;

  std::unordered_map<int, Entry> entries_;
  std::unordered_map<VrfAddress, std::set<Owner>, VrfAddress::Hash> owners_;
  std::unordered_map<int, std::set<int>> enslaved_;         // by master
  std::map<std::uint32_t, std::set<int>> devices_of_vrfs_;  // by table
  Changes changes_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINKS_H_
