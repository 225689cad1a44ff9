#include "dhcp_manager/kernel/route_cache.h"

#include <sys/epoll.h>

#include <algorithm>
#include <stdexcept>

namespace dhcp_manager {

RouteCache::RouteCache(vxmw_t* mw, std::unique_ptr<RouteQuery> query)
    : query_(std::move(query)),
      events_(mw, query_->fd(), 0, [this](std::uint32_t /*events*/) { Forget(); }) {}

bool RouteCache::LeadsTo(VrfIfindex vrf, nettypes::IPv4Addr address, int link) {
  auto found = links_.find({vrf, address});
  if (found == links_.end()) {
    // What changes between the two is noticed: it makes the loop drop the answer.
    if (!watching_) Watch();
    auto links = Ask(vrf, address);
    if (!links) return false;
    found = links_.emplace(Key(vrf, address), std::move(*links)).first;
  }
  return std::ranges::find(found->second, link) != found->second.end();
}

std::optional<std::vector<int>> RouteCache::Ask(VrfIfindex vrf, nettypes::IPv4Addr address) {
  try {
    return query_->Find(vrf, address);
  } catch (const std::runtime_error& error) {
    failures_.Error("cannot find the route to " + address.to_string() + ": " + error.what());
    return std::nullopt;
  }
}

void RouteCache::Watch() {
  query_->Arm();
  events_.SetEvents(EPOLLIN);
  watching_ = true;
}

void RouteCache::Forget() {
  links_.clear();
  events_.SetEvents(0);
  watching_ = false;
}

}  // namespace dhcp_manager
