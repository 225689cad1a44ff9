#include <algorithm>
#include <memory>
#include <utility>

#include <vxmw/event.h>

#include "platform/vxmidware/src/middleware.h"

namespace vxmw {
namespace {

using Watch = std::shared_ptr<const ConfigReadyWatch::Callback>;

bool IsThere(const vxmw_t& mw, const Watch& watch) {
  const auto& watches = mw.config_watches;
  return std::find(watches.begin(), watches.end(), watch) != watches.end();
}

}  // namespace

bool ConfigReady(const vxmw_t* mw) { return mw->config_ready; }

void SetConfigReady(vxmw_t* mw, bool ready) {
  if (std::exchange(mw->config_ready, ready) == ready) return;
  // A copy, because a watch may add and remove watches.
  const auto watches = mw->config_watches;
  for (const auto& watch : watches) {
    if (mw->config_ready != ready) return;  // a watch changed it; the others have been called
    if (IsThere(*mw, watch)) (*watch)(ready);
  }
}

ConfigReadyWatch::ConfigReadyWatch(vxmw_t* mw, Callback callback)
    : mw_(mw), callback_(std::make_shared<const Callback>(std::move(callback))) {
  mw_->config_watches.push_back(callback_);
}

ConfigReadyWatch::~ConfigReadyWatch() { mw_->config_watches.remove(callback_); }

}  // namespace vxmw
