// Takes handlers through the phases of a connection and of commits.

#ifndef PLATFORM_VXCONFD_SRC_DELIVERY_H_
#define PLATFORM_VXCONFD_SRC_DELIVERY_H_

#include <vector>

#include <vxconfd/vxconfd.h>

#include "platform/vxconfd/src/commit_tracker.h"
#include "platform/vxconfd/src/log.h"

namespace vxconfd {

// Handlers are served in the order in which they were added. An exception of theirs goes through.
class Delivery {
 public:
  explicit Delivery(const Log& log) : log_(log) {}

  void Add(ConfigHandler* handler) { handlers_.push_back(handler); }

  // What all handlers watch.
  WatchedPaths watched() const;

  void ReportConnected(ELEM_CONFD_PHASE_ET phase);
  void ReportDisconnected();
  void RunInitialPhases();

  // One commit, to the handlers that watch something of it.
  void Deliver(const lyd_node* difference);

 private:
  const Log& log_;
  std::vector<ConfigHandler*> handlers_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_DELIVERY_H_
