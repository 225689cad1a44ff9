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

bool Delivery::Deliver(const lyd_node* difference) {
  return std::all_of(handlers_.begin(), handlers_.end(),
                     [&](ConfigHandler* handler) { return DeliverTo(handler, difference); });
}

bool Delivery::DeliverTo(ConfigHandler* handler, const lyd_node* difference) const {
  const WalkCalls calls = {.skipped = [this](const std::string& text) { log_.Error(text); },
                           .go_on = go_on_};
  const auto& points = handler->GetSubscriptionPoints();
  if (std::none_of(points.begin(), points.end(),
                   [&](const auto& point) { return HasChanges(difference, point); })) {
    return true;
  }
  handler->StartCommit();
  for (const SubscriptionPoint& point : points) {
    if (!WalkChanges(difference, point, calls)) return false;
  }
  handler->ApplyCommitConfig();
  return true;
}

}  // namespace vxconfd
