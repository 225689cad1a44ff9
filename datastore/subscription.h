// Subscriptions to a datastore, whose events their owner takes from its loop.

#ifndef DATASTORE_SUBSCRIPTION_H_
#define DATASTORE_SUBSCRIPTION_H_

#include <sysrepo.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "datastore/connection.h"

namespace datastore {

// Used by one thread.
class Subscription {
 public:
  // Calls a function of the library that subscribes, and returns its result. `subscription` is the
  // one that it adds to.
  using Subscribe =
      std::function<int(sr_session_ctx_t* session, sr_subscription_ctx_t** subscription)>;

  // `connection` outlives it. Throws Error.
  Subscription(const Connection& connection, sr_datastore_t database);
  ~Subscription();
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  // `subscribe` passes SR_SUBSCR_NO_THREAD, and subscribes to events of `module`, whose callbacks
  // begin with an OwnSharedMemory. Throws Error.
  void Add(const std::string& module, const Subscribe& subscribe, const std::string& what_failed);

  // Readable while events wait. There is none before the first Add.
  int pipe() const { return pipe_; }

  // Calls back for what waits. Throws Error, also when the datastore is gone: what an event points
  // to is gone, too, or another datastore's.
  void ProcessEvents(const std::string& what_failed);

  // Why the datastore has to be left; empty while it is there.
  std::string LossReason() const { return connection_.LossReason(); }

 private:
  struct Deleter {
    void operator()(sr_subscription_ctx_t* subscription) const { sr_unsubscribe(subscription); }
  };

  const Connection& connection_;
  SessionPtr session_;
  std::unique_ptr<sr_subscription_ctx_t, Deleter> subscription_;
  int pipe_ = -1;                         // of the subscription
  std::vector<std::string> event_files_;  // that the library opens for each event
};

}  // namespace datastore

#endif  // DATASTORE_SUBSCRIPTION_H_
