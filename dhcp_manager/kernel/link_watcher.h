// Keeps a snapshot of the kernel's links and addresses, by rtnetlink.

#ifndef DHCP_MANAGER_KERNEL_LINK_WATCHER_H_
#define DHCP_MANAGER_KERNEL_LINK_WATCHER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <vxmw/event.h>

#include "dhcp_manager/kernel/links.h"

struct nl_cache_mngr;
struct nl_cache;

namespace dhcp_manager {

// Names of devices that stand for the VRF of a routing table, where the kernel has no VRF devices.
using VrfDevices = std::map<std::uint32_t, std::string>;

class LinkWatcher {
 public:
  using Changed = std::function<void()>;

  // Reads the present state, then calls `changed` on the loop after every change of links().
  // Throws std::runtime_error when the kernel refuses.
  LinkWatcher(vxmw_t* mw, VrfDevices vrf_devices, Changed changed);
  ~LinkWatcher();
  LinkWatcher(const LinkWatcher&) = delete;
  LinkWatcher& operator=(const LinkWatcher&) = delete;

  const Links& links() const { return links_; }

 private:
  struct ManagerDeleter {
    void operator()(nl_cache_mngr* manager) const;
  };

  void Open();
  void OnReadable();
  void Read();

  vxmw_t* const mw_;
  const VrfDevices vrf_devices_;
  const Changed changed_;
  Links links_;
  std::unique_ptr<nl_cache_mngr, ManagerDeleter> manager_;
  nl_cache* link_cache_ = nullptr;     // the manager's
  nl_cache* address_cache_ = nullptr;  // the manager's
  std::unique_ptr<vxmw::IoSource> events_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINK_WATCHER_H_
