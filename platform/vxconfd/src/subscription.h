// The subscription to the changes of the running datastore, served by the middleware's loop.

#ifndef PLATFORM_VXCONFD_SRC_SUBSCRIPTION_H_
#define PLATFORM_VXCONFD_SRC_SUBSCRIPTION_H_

#include <sysrepo.h>

#include <exception>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include <vxmw/event.h>

#include "platform/vxconfd/src/datastore.h"

namespace vxconfd {

// Calls back for every commit to a module's data, once the running datastore holds it and before
// the commit returns to whoever made it, always on the loop's thread. An exception of the callback
// comes out of the loop.
class Subscription {
 public:
  // `diff` is the difference that the commit made; it is gone after the call.
  using Committed = std::function<void(const lyd_node* diff)>;

  // Throws DatastoreError.
  Subscription(vxmw_t* mw, Datastore& datastore, const std::set<std::string>& modules,
               std::uint32_t priority, Committed committed);
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

 private:
  struct Deleter {
    void operator()(sr_subscription_ctx_t* subscription) const { sr_unsubscribe(subscription); }
  };

  static int OnChange(sr_session_ctx_t* session, std::uint32_t id, const char* module,
                      const char* xpath, sr_event_t event, std::uint32_t request, void* self);
  void ProcessEvents();

  Committed committed_;
  std::exception_ptr exception_;
  SessionPtr session_;
  std::unique_ptr<sr_subscription_ctx_t, Deleter> subscription_;
  std::unique_ptr<vxmw::IoSource>
      events_;  // goes first: it watches a descriptor of the subscription
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_SUBSCRIPTION_H_
