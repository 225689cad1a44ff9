// Subscriptions to a datastore, whose events their owner takes from its loop.

#ifndef DATASTORE_SUBSCRIPTION_H_
#define DATASTORE_SUBSCRIPTION_H_

#include <sysrepo.h>

#include <functional>
#include <memory>
#include <string>

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

  // `subscribe` passes SR_SUBSCR_NO_THREAD. Throws Error.
  void Add(const Subscribe& subscribe, const std::string& what_failed);

  // Readable while events wait. There is none before the first Add.
  int pipe() const { return pipe_; }

  // Calls back for what waits, and returns the library's result. Not to be called when the
  // datastore is gone: what an event points to is gone, too, or another datastore's.
  int ProcessEvents() {
    return sr_subscription_process_events(subscription_.get(), nullptr, nullptr);
  }

  // Why the datastore has to be left: its shared memory or its repository is gone. Empty while it
  // is there.
  std::string LossReason() const;

 private:
  struct Deleter {
    void operator()(sr_subscription_ctx_t* subscription) const { sr_unsubscribe(subscription); }
  };

  bool HasRepository() const;

  const Connection& connection_;
  SessionPtr session_;
  std::unique_ptr<sr_subscription_ctx_t, Deleter> subscription_;
  int pipe_ = -1;  // of the subscription
};

}  // namespace datastore

#endif  // DATASTORE_SUBSCRIPTION_H_
