#include "dhcp_manager/kernel/link_watcher.h"

#include <linux/if.h>
#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/link/vrf.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "base/service/log.h"
#include "base/socket_buffers.h"

namespace dhcp_manager {
namespace {

// Room for the events of thousands of interfaces that come up together.
constexpr int kReceiveBuffer = 4 * 1024 * 1024;

void Check(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(std::string("cannot ") + what + ": " + nl_geterror(result));
  }
}

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

}  // namespace

void LinkWatcher::ManagerDeleter::operator()(nl_cache_mngr* manager) const {
  nl_cache_mngr_free(manager);
}

LinkWatcher::LinkWatcher(vxmw_t* mw, VrfDevices vrf_devices, Changed changed)
    : mw_(mw), vrf_devices_(std::move(vrf_devices)), changed_(std::move(changed)) {
  Open();
  Read();
}

LinkWatcher::~LinkWatcher() = default;

void LinkWatcher::Open() {
  events_.reset();
  nl_cache_mngr* manager = nullptr;
  Check(nl_cache_mngr_alloc(nullptr, NETLINK_ROUTE, 0, &manager), "watch the kernel's links");
  manager_.reset(manager);
  const int fd = nl_cache_mngr_get_fd(manager);
  // A refusal only makes it likelier that everything must be read anew.
  base::SetReceiveBuffer(fd, kReceiveBuffer);
  Check(nl_cache_mngr_add(manager, "route/link", nullptr, nullptr, &link_cache_),
        "read the kernel's links");
  Check(nl_cache_mngr_add(manager, "route/addr", nullptr, nullptr, &address_cache_),
        "read the kernel's addresses");
  events_ = std::make_unique<vxmw::IoSource>(mw_, fd, EPOLLIN,
                                             [this](std::uint32_t /*events*/) { OnReadable(); });
}

void LinkWatcher::OnReadable() {
  const int result = nl_cache_mngr_data_ready(manager_.get());
  if (result < 0) {
    // Events were lost: only reading everything anew tells what is there now.
    base::LogError(std::string("reading the kernel's links anew: ") + nl_geterror(result));
    Open();
  }
  Read();
}

void LinkWatcher::Read() {
  Links now;
  for (nl_object* object = nl_cache_get_first(link_cache_); object != nullptr;
       object = nl_cache_get_next(object)) {
    auto* const link = reinterpret_cast<rtnl_link*>(object);
    // A bridge is told of in the family of bridges alone, the ports of one in both.
    const int index = rtnl_link_get_ifindex(link);
    if (rtnl_link_get_family(link) == AF_UNSPEC) {
      now.links.insert_or_assign(index, ToLink(link, vrf_devices_));
    } else {
      now.links.try_emplace(index, ToLink(link, vrf_devices_));
    }
  }
  for (nl_object* object = nl_cache_get_first(address_cache_); object != nullptr;
       object = nl_cache_get_next(object)) {
    auto* const address = reinterpret_cast<rtnl_addr*>(object);
    if (rtnl_addr_get_family(address) != AF_INET) continue;
    now.addresses.push_back({.link = rtnl_addr_get_ifindex(address),
                             .address = ToIPv4(rtnl_addr_get_local(address)),
                             .broadcast = ToIPv4(rtnl_addr_get_broadcast(address))});
  }
  if (now == links_) return;
  links_ = std::move(now);
  if (changed_) changed_();
}

}  // namespace dhcp_manager
