// What the configuration adapter tells the rest of its process.

#include <utility>

#include <vxmw/event.h>

#include "platform/vxmidware/src/middleware.h"

namespace vxmw {

bool ConfigReady(const vxmw_t* mw) { return mw->config_ready.value(); }

void SetConfigReady(vxmw_t* mw, bool ready) { mw->config_ready.Set(ready); }

ConfigReadyWatch::ConfigReadyWatch(vxmw_t* mw, Callback callback)
    : mw_(mw), callback_(mw->config_ready.Add(std::move(callback))) {}

ConfigReadyWatch::~ConfigReadyWatch() { mw_->config_ready.Remove(callback_); }

void SetDelivering(vxmw_t* mw, bool delivering) { mw->delivering.Set(delivering); }

DeliveryWatch::DeliveryWatch(vxmw_t* mw, Callback callback)
    : mw_(mw), callback_(mw->delivering.Add(std::move(callback))) {}

DeliveryWatch::~DeliveryWatch() { mw_->delivering.Remove(callback_); }

}  // namespace vxmw
