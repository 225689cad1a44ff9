// Takes handlers through the phases of a connection and of commits.

#ifndef PLATFORM_VXCONFD_SRC_DELIVERY_H_
#define PLATFORM_VXCONFD_SRC_DELIVERY_H_

#include <functional>
#include <utility>
#include <vector>

#include <vxconfd/vxconfd.h>

#include "platform/vxconfd/src/commit_tracker.h"
#include "platform/vxconfd/src/log.h"

namespace vxconfd {

// Handlers are served in the order in which they were added. An exception of theirs goes through.
class Delivery {
 public:
  // `go_on` is asked before each callback; false gives the delivery up.
  Delivery(const Log& log, std::function<bool()> go_on) : log_(log), go_on_(std::move(go_on)) {}

  void Add(ConfigHandler* handler) { handlers_.push_back(handler); }

  // What all handlers watch.
  WatchedPaths watched() const;

  void ReportConnected(ELEM_CONFD_PHASE_ET phase);
  void ReportDisconnected();
  void RunInitialPhases();

  // One commit, to the handlers that watch something of it. False when it was given up: a handler
  // that had begun with the commit does not apply it.
  bool Deliver(const lyd_node* difference);

 private:
  bool DeliverTo(ConfigHandler* handler, const lyd_node* difference) const;

  const Log& log_;
  const std::function<bool()> go_on_;
  std::vector<ConfigHandler*> handlers_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_DELIVERY_H_
