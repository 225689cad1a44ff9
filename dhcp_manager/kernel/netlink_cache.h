// The kernel's links and addresses as rtnetlink reports them: the seam between the link watcher and
// the kernel.

#ifndef DHCP_MANAGER_KERNEL_NETLINK_CACHE_H_
#define DHCP_MANAGER_KERNEL_NETLINK_CACHE_H_

#include <memory>
#include <optional>
#include <string>

#include "dhcp_manager/kernel/links.h"
#include "dhcp_manager/kernel/netlink_links.h"

namespace dhcp_manager {

class NetlinkCache {
 public:
  NetlinkCache() = default;
  virtual ~NetlinkCache() = default;
  NetlinkCache(const NetlinkCache&) = delete;
  NetlinkCache& operator=(const NetlinkCache&) = delete;

  // Readable while events wait.
  virtual int fd() const = 0;

  // Applies the events that wait. Returns the reason when some of them were lost: the cache is out
  // of date then, and only a new one knows the present state.
  virtual std::optional<std::string> TakeEvents() = 0;

  virtual Links Read() const = 0;
};

// A cache filled with the kernel's present state. Throws std::runtime_error when the kernel
// refuses.
std::unique_ptr<NetlinkCache> OpenNetlinkCache(const VrfDevices& vrf_devices);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_NETLINK_CACHE_H_
