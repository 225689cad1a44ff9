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
  links_ = cache_->Read();
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
  if (const auto reason = cache_->TakeEvents()) {
    base::LogError("events of the kernel's links were lost, reading all links anew: " + *reason);
    Open();
  }
  Links now = cache_->Read();
  if (now == links_) return;
  links_ = std::move(now);
  changed_();
}

}  // namespace dhcp_manager
