#include <algorithm>
#include <utility>

#include "middleware.h"
#include "vxmw/event.h"

namespace vxmw {

bool ConfigReady(const vxmw_t* mw) { return mw->config_ready; }

void SetConfigReady(vxmw_t* mw, bool ready) {
  if (std::exchange(mw->config_ready, ready) == ready) return;
  // A copy, because watches may come and go while they are told.
  const auto watches = mw->config_watches;
  for (const auto* watch : watches) {
    const auto& there = mw->config_watches;
    if (std::find(there.begin(), there.end(), watch) == there.end()) continue;
    const auto callback = *watch;  // lives on when it destroys its own watch
    callback(ready);
  }
}

ConfigReadyWatch::ConfigReadyWatch(vxmw_t* mw, Callback callback)
    : mw_(mw), callback_(std::move(callback)) {
  mw_->config_watches.push_back(&callback_);
}

ConfigReadyWatch::~ConfigReadyWatch() { mw_->config_watches.remove(&callback_); }

}  // namespace vxmw
