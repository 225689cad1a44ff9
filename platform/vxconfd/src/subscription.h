// The subscription to the changes of the running datastore, served by the middleware's loop.

#ifndef PLATFORM_VXCONFD_SRC_SUBSCRIPTION_H_
#define PLATFORM_VXCONFD_SRC_SUBSCRIPTION_H_

#include <sysrepo.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>

#include <vxmw/event.h>

#include "datastore/subscription.h"
#include "platform/vxconfd/src/datastore.h"

namespace vxconfd {

// What a subscription reports, always on the loop's thread. An exception comes out of the loop.
struct SubscriptionCalls {
  // A commit, once the running datastore holds it and before it returns to whoever made it. `diff`
  // is the difference that it made; it is gone after the call.
  std::function<void(const lyd_node* diff)> committed;
  // More commits were announced than are still to be had: the datastore does not wait for a process
  // for ever. Called before `committed` of those that are, and again after them.
  std::function<void(bool more_to_come)> missed;
  // The datastore refuses to hand out commits.
  std::function<void(const std::string& reason)> failed;
};

class Subscription {
 public:
  // Throws DatastoreError. The datastore outlives this.
  Subscription(vxmw_t* mw, const Datastore& datastore, const Modules& modules,
               std::uint32_t priority, SubscriptionCalls calls);
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  // Takes the commits that are announced, if any. Does nothing while one is being taken.
  void TakeWaiting();

  // True while commits are announced that were not taken yet.
  bool HasWaiting() const { return CountAnnounced() > 0; }

  // Why the datastore has to be left; empty while it is there.
  std::string LossReason() const { return subscription_.LossReason(); }

 private:
  static int OnChange(sr_session_ctx_t* session, std::uint32_t id, const char* module,
                      const char* xpath, sr_event_t event, std::uint32_t request, void* self);
  void Subscribe(const std::string& module, std::uint32_t priority);
  void ProcessEvents();
  int CountAnnounced() const;

  SubscriptionCalls calls_;
  int modules_;
  int taken_ = 0;  // commits, since events are being processed
  bool processing_ = false;
  bool is_lost_ = false;
  std::exception_ptr exception_;
  datastore::Subscription subscription_;
  std::unique_ptr<vxmw::IoSource> events_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_SUBSCRIPTION_H_
