#include "platform/vxconfd/src/delivery.h"

#include <algorithm>

#include "platform/vxconfd/src/change_walk.h"

namespace vxconfd {

WatchedPaths Delivery::watched() const {
  WatchedPaths watched;
  for (const ConfigHandler* handler : handlers_) {
    for (const SubscriptionPoint& point : handler->GetSubscriptionPoints()) {
      watched.paths.push_back(point.path);
      watched.priority = std::max(watched.priority, static_cast<std::uint32_t>(point.priority));
    }
  }
  return watched;
}

void Delivery::ReportConnected(ELEM_CONFD_PHASE_ET phase) {
  for (ConfigHandler* handler : handlers_) handler->ConfdConnected(phase);
}

void Delivery::ReportDisconnected() {
  for (ConfigHandler* handler : handlers_) handler->ConfdDisconnected();
}

void Delivery::RunInitialPhases() {
  for (ConfigHandler* handler : handlers_) handler->LoadInitialConfig();
  for (ConfigHandler* handler : handlers_) handler->ApplyInitialConfig();
}

void Delivery::Deliver(const lyd_node* difference) {
  const auto log_skipped = [this](const std::string& text) { log_.Error(text); };
  for (ConfigHandler* handler : handlers_) {
    const auto& points = handler->GetSubscriptionPoints();
    if (std::none_of(points.begin(), points.end(), [&](const SubscriptionPoint& point) {
          return HasChanges(difference, point);
        })) {
      continue;
    }
    handler->StartCommit();
    for (const SubscriptionPoint& point : points) WalkChanges(difference, point, log_skipped);
    handler->ApplyCommitConfig();
  }
}

}  // namespace vxconfd
