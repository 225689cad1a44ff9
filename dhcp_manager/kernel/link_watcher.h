// Keeps a snapshot of the kernel's links and addresses up to date.

#ifndef DHCP_MANAGER_KERNEL_LINK_WATCHER_H_
#define DHCP_MANAGER_KERNEL_LINK_WATCHER_H_

#include <functional>
#include <memory>

#include <vxmw/event.h>

#include "dhcp_manager/kernel/links.h"
#include "dhcp_manager/kernel/netlink_cache.h"

namespace dhcp_manager {

class LinkWatcher {
 public:
  using Changed = std::function<void()>;
  using OpenCache = std::function<std::unique_ptr<NetlinkCache>()>;

  // Reads the present state, then calls `changed` on the loop after every change of links().
  // Throws std::runtime_error when the kernel refuses.
  LinkWatcher(vxmw_t* mw, const VrfDevices& vrf_devices, Changed changed);
  // Likewise, from what `open_cache` returns: at first, and whenever events were lost.
  LinkWatcher(vxmw_t* mw, OpenCache open_cache, Changed changed);
  LinkWatcher(const LinkWatcher&) = delete;
  LinkWatcher& operator=(const LinkWatcher&) = delete;

  const Links& links() const { return links_; }

 private:
  void Open();
  void OnReadable();
  // What the cache holds, in order after `before`.
  Links Read(const Links& before) const;

  vxmw_t* const mw_;
  const OpenCache open_cache_;
  const Changed changed_;
  Links links_;
  std::unique_ptr<NetlinkCache> cache_;
  std::unique_ptr<vxmw::IoSource> events_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINK_WATCHER_H_
