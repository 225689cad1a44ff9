#include "dhcp_manager/kernel/link_watcher.h"

#include <sys/epoll.h>

#include <string>
#include <utility>

#include "base/service/log.h"

namespace dhcp_manager {

LinkWatcher::LinkWatcher(vxmw_t* mw, const VrfDevices& vrf_devices, Changed changed)
    : LinkWatcher(
          mw, [vrf_devices] { return OpenNetlinkCache(vrf_devices); }, std::move(changed)) {}

LinkWatcher::LinkWatcher(vxmw_t* mw, OpenCache open_cache, Changed changed)
    : mw_(mw), open_cache_(std::move(open_cache)), changed_(std::move(changed)) {
  Open();
  links_ = Read({});
}

Links LinkWatcher::Read(const Links& before) const {
  Links links = cache_->Read();
  links.SortAddresses(before);
  return links;
}

void LinkWatcher::Open() {
  // The descriptor must leave the loop before its cache closes it.
  events_.reset();
  cache_.reset();
  cache_ = open_cache_();
  events_ = std::make_unique<vxmw::IoSource>(mw_, cache_->fd(), EPOLLIN,
                                             [this](std::uint32_t /*events*/) { OnReadable(); });
}

void LinkWatcher::OnReadable() {
  const auto reason = cache_->TakeEvents();
  if (reason) {
    base::LogError("events of the kernel's links were lost, reading all links anew: " + *reason);
    Open();
  }
  // A new cache has the kernel's own order.
  Links now = Read(reason ? Links() : links_);
  if (now == links_) return;
  links_ = std::move(now);
  changed_();
}

}  // namespace dhcp_manager
