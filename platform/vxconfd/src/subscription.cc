#include "platform/vxconfd/src/subscription.h"

#include <sys/epoll.h>

#include <utility>

namespace vxconfd {
namespace {

constexpr sr_subscr_options_t kOptions = SR_SUBSCR_NO_THREAD | SR_SUBSCR_DONE_ONLY;

void Check(int code, const char* what, sr_session_ctx_t* session) {
  if (code != SR_ERR_OK) throw DatastoreError(what, code, session);
}

}  // namespace

Subscription::Subscription(vxmw_t* mw, Datastore& datastore, const std::set<std::string>& modules,
                           std::uint32_t priority, Committed committed)
    : committed_(std::move(committed)), session_(datastore.OpenSession()) {
  for (const std::string& module : modules) {
    sr_subscription_ctx_t* subscription = subscription_.release();
    const int code = sr_module_change_subscribe(session_.get(), module.c_str(), nullptr, OnChange,
                                                this, priority, kOptions, &subscription);
    subscription_.reset(subscription);
    Check(code, "cannot subscribe to changes", session_.get());
  }
  int pipe = -1;
  Check(sr_get_event_pipe(subscription_.get(), &pipe), "cannot watch for changes", session_.get());
  events_ = std::make_unique<vxmw::IoSource>(mw, pipe, EPOLLIN,
                                             [this](std::uint32_t /*events*/) { ProcessEvents(); });
}

int Subscription::OnChange(sr_session_ctx_t* session, std::uint32_t /*id*/, const char* /*module*/,
                           const char* /*xpath*/, sr_event_t event, std::uint32_t /*request*/,
                           void* self) {
  auto* const subscription = static_cast<Subscription*>(self);
  // After an exception the process is on its way out; further commits are not for it.
  if (event != SR_EV_DONE || subscription->exception_) return SR_ERR_OK;
  try {
    subscription->committed_(sr_get_change_diff(session));
  } catch (...) {
    subscription->exception_ = std::current_exception();
  }
  return SR_ERR_OK;
}

void Subscription::ProcessEvents() {
  const int code = sr_subscription_process_events(subscription_.get(), nullptr, nullptr);
  if (exception_) std::rethrow_exception(exception_);
  Check(code, "cannot take changes", nullptr);
}

}  // namespace vxconfd
