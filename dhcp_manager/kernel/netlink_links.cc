#include "dhcp_manager/kernel/netlink_links.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <netlink/cache.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/link/vrf.h>
#include <sys/socket.h>

#include <algorithm>

namespace dhcp_manager {
namespace {

nettypes::IPv4Addr ToIPv4(const nl_addr* address) {
  if (address == nullptr || nl_addr_get_family(address) != AF_INET ||
      nl_addr_get_len(address) != sizeof(in_addr)) {
    return {};
  }
  return nettypes::IPv4Addr(*static_cast<const in_addr*>(nl_addr_get_binary_addr(address)));
}

base::MacAddress ToMac(const nl_addr* address) {
  base::MacAddress mac{};
  if (address != nullptr && nl_addr_get_len(address) == mac.size()) {
    std::copy_n(static_cast<const std::uint8_t*>(nl_addr_get_binary_addr(address)), mac.size(),
                mac.begin());
  }
  return mac;
}

bool IsUp(rtnl_link* link) {
  const std::uint8_t state = rtnl_link_get_operstate(link);
  const bool carrier = state == IF_OPER_UP || state == IF_OPER_UNKNOWN;
  return (rtnl_link_get_flags(link) & IFF_UP) != 0 && carrier;
}

std::optional<std::uint32_t> VrfTable(rtnl_link* link, const VrfDevices& vrf_devices) {
  std::uint32_t table = 0;
  if (rtnl_link_is_vrf(link) != 0 && rtnl_link_vrf_get_tableid(link, &table) == 0) return table;
  for (const auto& [index, name] : vrf_devices) {
    if (name == rtnl_link_get_name(link)) return index;
  }
  return std::nullopt;
}

Link ToLink(rtnl_link* link, const VrfDevices& vrf_devices) {
  return {.index = rtnl_link_get_ifindex(link),
          .name = rtnl_link_get_name(link),
          .up = IsUp(link),
          .mac = ToMac(rtnl_link_get_addr(link)),
          .master = rtnl_link_get_master(link),
          .vrf_table = VrfTable(link, vrf_devices)};
}

void AddLink(rtnl_link* link, const VrfDevices& vrf_devices, Links& links) {
  // A bridge is reported in the bridge family only, a bridge's port in both families: there the
  // unspecified family has the whole of it.
  const int index = rtnl_link_get_ifindex(link);
  if (rtnl_link_get_family(link) == AF_UNSPEC) {
    links.links.insert_or_assign(index, ToLink(link, vrf_devices));
  } else {
    links.links.try_emplace(index, ToLink(link, vrf_devices));
  }
}

void AddAddress(rtnl_addr* address, Links& links) {
  if (rtnl_addr_get_family(address) != AF_INET) return;
  links.addresses.push_back(
      {.link = rtnl_addr_get_ifindex(address),
       .address = ToIPv4(rtnl_addr_get_local(address)),
       .broadcast = ToIPv4(rtnl_addr_get_broadcast(address)),
       .prefix_length = static_cast<unsigned>(rtnl_addr_get_prefixlen(address)),
       .secondary = (rtnl_addr_get_flags(address) & IFA_F_SECONDARY) != 0});
}

template <typename Object, typename Visit>
void ForEach(nl_cache* cache, Visit visit) {
  for (nl_object* object = nl_cache_get_first(cache); object != nullptr;
       object = nl_cache_get_next(object)) {
    visit(reinterpret_cast<Object*>(object));
  }
}

}  // namespace

Links ReadLinks(nl_cache* link_cache, nl_cache* address_cache, const VrfDevices& vrf_devices) {
  Links links;
  ForEach<rtnl_link>(link_cache, [&](rtnl_link* link) { AddLink(link, vrf_devices, links); });
  ForEach<rtnl_addr>(address_cache, [&](rtnl_addr* address) { AddAddress(address, links); });
  return links;
}

}  // namespace dhcp_manager
