#include "datastore/subscription.h"

#include <sys/stat.h>

#include "datastore/error.h"

namespace datastore {

Subscription::Subscription(const Connection& connection, sr_datastore_t database)
    : connection_(connection), session_(connection.OpenSession(database)) {}

// In a datastore that is gone there is nothing to unsubscribe from: what took its place uses the
// same names for the pipes of others, and a lock that a killed process held is never free.
Subscription::~Subscription() {
  if (connection_.IsGone()) (void)subscription_.release();
}

void Subscription::Add(const Subscribe& subscribe, const std::string& what_failed) {
  sr_subscription_ctx_t* subscription = subscription_.release();
  const int code = subscribe(session_.get(), &subscription);
  subscription_.reset(subscription);
  Check(code, what_failed, session_.get());
  Check(sr_get_event_pipe(subscription, &pipe_), what_failed, session_.get());
}

std::string Subscription::LossReason() const {
  const std::string reason = connection_.LossReason();
  return reason.empty() && !HasRepository() ? "the repository of the datastore is gone" : reason;
}

// The file through which events are announced is in the repository.
bool Subscription::HasRepository() const {
  struct stat status = {};
  return fstat(pipe_, &status) == 0 && status.st_nlink > 0;
}

}  // namespace datastore
