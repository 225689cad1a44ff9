#include "dhcp_manager/kernel/links.h"

#include <algorithm>

namespace dhcp_manager {

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
