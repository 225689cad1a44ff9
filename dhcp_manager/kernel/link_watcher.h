// Follows the kernel's links and addresses from the loop.

#ifndef DHCP_MANAGER_KERNEL_LINK_WATCHER_H_
#define DHCP_MANAGER_KERNEL_LINK_WATCHER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <vxmw/event.h>

#include "base/service/retry.h"
#include "dhcp_manager/kernel/link_feed.h"
#include "dhcp_manager/kernel/link_socket.h"
#include "dhcp_manager/kernel/links.h"

namespace dhcp_manager {

class LinkWatcher {
 public:
  using Changed = std::function<void(const Links::Changes&)>;
  using OpenSocket = std::function<std::unique_ptr<LinkSocket>()>;

  // Reads the present state, then calls `changed` on the loop after every change of links(). When
  // events were lost, links() stays as it is until all has been read anew, which is tried until it
  // succeeds; `reopen` is called when `socket` is of no use any more.
  LinkWatcher(vxmw_t* mw, std::unique_ptr<LinkSocket> socket, VrfDevices vrf_devices,
              Changed changed, OpenSocket reopen = OpenLinkSocket);
  LinkWatcher(const LinkWatcher&) = delete;
  LinkWatcher& operator=(const LinkWatcher&) = delete;

  const Links& links() const { return links_; }
  // How often the kernel had no room for events.
  std::uint64_t overruns() const { return overruns_; }

 private:
  static constexpr base::RetryDelays kDelays{.first = std::chrono::milliseconds(10),
                                             .longest = std::chrono::milliseconds(2000)};
  // Losses within this time of each other count as one: one log line, and a growing delay.
  static constexpr std::chrono::seconds kSteady{10};

  // Reads all, as long as the kernel answers without a pause.
  void ReadAtOnce();
  void Watch();
  void TakePortion();
  // Calls `step`; false when it lost events.
  bool Try(const std::function<void()>& step);
  void Lose(const std::string& reason);
  void StartAgain();

  vxmw_t* const mw_;
  const VrfDevices vrf_devices_;
  const Changed changed_;
  const OpenSocket reopen_;
  Links links_;
  std::uint64_t overruns_ = 0;
  std::unique_ptr<LinkFeed> feed_;  // null when the socket is of no use any more
  base::Retry retry_;
  vxmw::TimerSource steady_;
  std::unique_ptr<vxmw::IoSource> events_;  // null while it waits to start again
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINK_WATCHER_H_
