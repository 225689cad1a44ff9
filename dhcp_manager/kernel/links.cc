#include "dhcp_manager/kernel/links.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace dhcp_manager {
namespace {

// What makes an address the same one when the kernel reports it anew.
auto Identity(const LinkAddress& address) {
  return std::tuple(address.address, address.prefix_length, address.peer);
}

// Where the kernel puts an address among those of its link.
auto Rank(const LinkAddress& address) {
  return std::pair(address.secondary, address.secondary ? 0 : -static_cast<int>(address.scope));
}

auto FindSame(std::vector<LinkAddress>& addresses, const LinkAddress& address) {
  return std::ranges::find(addresses, Identity(address), Identity);
}

}  // namespace

nettypes::IPv4Addr LinkAddress::DirectedBroadcast() const {
  constexpr unsigned kMaxLength = 30;
  if (prefix_length > kMaxLength) return {};
  const std::uint32_t host_bits = std::numeric_limits<std::uint32_t>::max() >> prefix_length;
  return nettypes::IPv4Addr::from_host_order(address.host_order() | host_bits);
}

void Links::SetLink(const Link& link) {
  Entry& entry = entries_[link.index];
  if (entry.link != link) SetLink(entry, link);
}

void Links::RemoveLink(int index) {
  const auto found = entries_.find(index);
  if (found == entries_.end()) return;
  if (found->second.link) SetLink(found->second, std::nullopt);
  changes_.links.insert(index);
  entries_.erase(found);
}

void Links::SetLink(Entry& entry, std::optional<Link> link) {
  const Link before = entry.link.value_or(Link{});
  const Link after = link.value_or(Link{});
  const bool other_table = before.vrf_table != after.vrf_table;
  const bool renamed = after.vrf_table && before.name != after.name;
  const auto dependent =
      other_table ? EnslavedTo(link ? after.index : before.index) : std::vector<const Entry*>();
  for (const Entry* enslaved : dependent) RemoveOwned(*enslaved);
  RemoveOwned(entry);
  SetEnslaved(entry, false);
  SetVrfDevice(entry, false);
  entry.link = std::move(link);
  SetVrfDevice(entry, true);
  SetEnslaved(entry, true);
  AddOwned(entry);
  for (const Entry* enslaved : dependent) AddOwned(*enslaved);
  changes_.links.insert(entry.link ? after.index : before.index);
  changes_.vrfs = changes_.vrfs || other_table || renamed;
}

std::vector<const Links::Entry*> Links::EnslavedTo(int index) const {
  std::vector<const Entry*> entries;
  const auto found = enslaved_.find(index);
  if (found == enslaved_.end()) return entries;
  for (const int link : found->second) {
    if (link != index) entries.push_back(&entries_.at(link));
  }
  return entries;
}

void Links::SetEnslaved(const Entry& entry, bool enslaved) {
  if (!entry.link || entry.link->master == 0) return;
  std::set<int>& links = enslaved_[entry.link->master];
  if (enslaved) {
    links.insert(entry.link->index);
  } else {
    links.erase(entry.link->index);
    if (links.empty()) enslaved_.erase(entry.link->master);
  }
}

void Links::SetVrfDevice(const Entry& entry, bool exists) {
  if (!entry.link || !entry.link->vrf_table) return;
  const std::uint32_t table = *entry.link->vrf_table;
  std::set<int>& devices = devices_of_vrfs_[table];
  if (exists) {
    devices.insert(entry.link->index);
  } else {
    devices.erase(entry.link->index);
    if (devices.empty()) devices_of_vrfs_.erase(table);
  }
}

void Links::SetAddress(const LinkAddress& address) {
  Entry& entry = entries_[address.link];
  auto same = FindSame(entry.addresses, address);
  if (same != entry.addresses.end() && *same == address) return;
  if (same != entry.addresses.end() && Rank(*same) == Rank(address)) {
    *same = address;
  } else {
    if (same != entry.addresses.end()) entry.addresses.erase(same);
    const auto place = std::ranges::upper_bound(entry.addresses, Rank(address), {}, Rank);
    entry.addresses.insert(place, address);
  }
  AddOwner(entry, address);
  changes_.links.insert(address.link);
}

void Links::RemoveAddress(const LinkAddress& address) {
  const auto found = entries_.find(address.link);
  if (found == entries_.end()) return;
  Entry& entry = found->second;
  const auto same = FindSame(entry.addresses, address);
  if (same == entry.addresses.end()) return;
  RemoveOwner(entry, address);
  entry.addresses.erase(same);
  // The link may have it once more, with another prefix or peer.
  const auto more = std::ranges::find(entry.addresses, address.address, &LinkAddress::address);
  if (more != entry.addresses.end()) AddOwner(entry, *more);
  changes_.links.insert(address.link);
  if (!entry.link && entry.addresses.empty()) entries_.erase(found);
}

void Links::SetAddresses(int index, const std::vector<LinkAddress>& addresses) {
  Entry& entry = entries_[index];
  if (entry.addresses == addresses) return;
  RemoveOwned(entry);
  entry.addresses = addresses;
  AddOwned(entry);
  changes_.links.insert(index);
}

void Links::ReplaceBy(const Links& fresh) {
  std::vector<int> gone;
  for (const auto& [index, entry] : entries_) {
    const auto found = fresh.entries_.find(index);
    if (found == fresh.entries_.end() || !found->second.link) gone.push_back(index);
  }
  for (const int index : gone) RemoveLink(index);
  for (const auto& [index, entry] : fresh.entries_) {
    if (entry.link) SetLink(*entry.link);
    SetAddresses(index, entry.addresses);
  }
}

void Links::AddOwned(const Entry& entry) {
  for (const LinkAddress& address : entry.addresses) AddOwner(entry, address);
}

void Links::RemoveOwned(const Entry& entry) {
  for (const LinkAddress& address : entry.addresses) RemoveOwner(entry, address);
}

void Links::AddOwner(const Entry& entry, const LinkAddress& address) {
  if (!entry.link) return;
  const VrfAddress owned{.vrf = VrfOf(*entry.link), .address = address.address};
  owners_[owned].emplace(!entry.link->up, entry.link->index);
  changes_.addresses.insert(owned);
}

void Links::RemoveOwner(const Entry& entry, const LinkAddress& address) {
  if (!entry.link) return;
  const VrfAddress owned{.vrf = VrfOf(*entry.link), .address = address.address};
  changes_.addresses.insert(owned);
  const auto found = owners_.find(owned);
  if (found == owners_.end()) return;
  found->second.erase({!entry.link->up, entry.link->index});
  if (found->second.empty()) owners_.erase(found);
}

const Link* Links::Find(int index) const {
  const auto found = entries_.find(index);
  return found == entries_.end() || !found->second.link ? nullptr : &*found->second.link;
}

const std::vector<LinkAddress>& Links::AddressesOf(int index) const {
  static const std::vector<LinkAddress> kNone;
  const auto found = entries_.find(index);
  return found == entries_.end() ? kNone : found->second.addresses;
}

const LinkAddress* Links::FindOwner(const VrfAddress& address) const {
  const auto found = owners_.find(address);
  if (found == owners_.end()) return nullptr;
  const auto& addresses = entries_.at(found->second.begin()->second).addresses;
  return &*std::ranges::find(addresses, address.address, &LinkAddress::address);
}

std::optional<VrfIfindex> Links::FindVrf(std::uint32_t table) const {
  const auto found = devices_of_vrfs_.find(table);
  if (found == devices_of_vrfs_.end()) return std::nullopt;
  return *found->second.begin();
}

VrfIfindex Links::VrfOf(const Link& link) const {
  if (link.vrf_table) return link.index;
  const Link* const master = Find(link.master);
  return master != nullptr && master->vrf_table ? master->index : kDefaultVrf;
}

}  // namespace dhcp_manager
