#include "dhcp_manager/kernel/links.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace dhcp_manager {
namespace {

// What makes an address the same one in two snapshots.
auto Identity(const LinkAddress& address) {
  return std::tuple(address.link, address.address, address.prefix_length);
}

}  // namespace

nettypes::IPv4Addr LinkAddress::DirectedBroadcast() const {
  constexpr unsigned kMaxLength = 30;
  if (prefix_length > kMaxLength) return {};
  const std::uint32_t host_bits = std::numeric_limits<std::uint32_t>::max() >> prefix_length;
  return nettypes::IPv4Addr::from_host_order(address.host_order() | host_bits);
}

void Links::SortAddresses(const Links& before) {
  std::map<decltype(Identity({})), std::size_t> known;
  for (const LinkAddress& address : before.addresses) {
    known.try_emplace(Identity(address), known.size());
  }
  const auto rank = [&known](const LinkAddress& address) {
    const auto found = known.find(Identity(address));
    return std::pair(address.secondary, found == known.end() ? known.size() : found->second);
  };
  std::ranges::stable_sort(addresses, {}, rank);
}

std::optional<VrfIfindex> Links::FindVrf(std::uint32_t table) const {
  const auto found = std::ranges::find_if(
      links, [table](const auto& entry) { return entry.second.vrf_table == table; });
  if (found == links.end()) return std::nullopt;
  return found->first;
}

VrfIfindex Links::VrfOf(const Link& link) const {
  if (link.vrf_table) return link.index;
  const auto master = links.find(link.master);
  return master != links.end() && master->second.vrf_table ? master->first : kDefaultVrf;
}

}  // namespace dhcp_manager
