#include "platform/vxconfd/src/subscription.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>

#include <utility>

#include "datastore/library_paths.h"

namespace vxconfd {
namespace {

constexpr sr_subscr_options_t kOptions = SR_SUBSCR_NO_THREAD | SR_SUBSCR_DONE_ONLY;

}  // namespace

Subscription::Subscription(vxmw_t* mw, const Datastore& datastore, const Modules& modules,
                           std::uint32_t priority, SubscriptionCalls calls)
    : calls_(std::move(calls)),
      modules_(static_cast<int>(modules.size())),
      subscription_(datastore.connection(), SR_DS_RUNNING) {
  for (const std::string& module : modules) Subscribe(module, priority);
  events_ = std::make_unique<vxmw::IoSource>(mw, subscription_.pipe(), EPOLLIN,
                                             [this](std::uint32_t /*events*/) { ProcessEvents(); });
}

void Subscription::Subscribe(const std::string& module, std::uint32_t priority) {
  const auto subscribe = [&](sr_session_ctx_t* session, sr_subscription_ctx_t** subscription) {
    return sr_module_change_subscribe(session, module.c_str(), nullptr, OnChange, this, priority,
                                      kOptions, subscription);
  };
  subscription_.Add(module, subscribe, "cannot subscribe to changes");
}

int Subscription::OnChange(sr_session_ctx_t* session, std::uint32_t /*id*/, const char* /*module*/,
                           const char* /*xpath*/, sr_event_t event, std::uint32_t /*request*/,
                           void* self) {
  const datastore::OwnSharedMemory own;
  auto* const subscription = static_cast<Subscription*>(self);
  // After an exception the process is on its way out; further commits are not for it.
  if (event != SR_EV_DONE || subscription->exception_) return SR_ERR_OK;
  ++subscription->taken_;
  try {
    subscription->calls_.committed(sr_get_change_diff(session));
  } catch (...) {
    subscription->exception_ = std::current_exception();
  }
  return SR_ERR_OK;
}

int Subscription::CountAnnounced() const {
  int bytes = 0;  // one for each
  return ioctl(subscription_.pipe(), FIONREAD, &bytes) == 0 ? bytes : 0;
}

void Subscription::TakeWaiting() {
  if (!processing_ && HasWaiting()) ProcessEvents();
}

void Subscription::ProcessEvents() {
  if (is_lost_) return;
  struct Processing {
    explicit Processing(bool& flag) : processing(flag) { flag = true; }
    ~Processing() { processing = false; }
    bool& processing;
  };
  const Processing guard(processing_);
  const int announced = CountAnnounced();
  taken_ = 0;
  // A module's commits come one after the other: each waits for its subscribers.
  if (announced > modules_) calls_.missed(true);
  try {
    subscription_.ProcessEvents("cannot take changes");
  } catch (const DatastoreError& error) {
    is_lost_ = true;
    calls_.failed(error.what());
  }
  if (exception_) std::rethrow_exception(exception_);
  if (!is_lost_ && taken_ < announced) calls_.missed(false);
}

}  // namespace vxconfd
