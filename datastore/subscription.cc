#include "datastore/subscription.h"

#include <utility>

#include "datastore/error.h"
#include "datastore/library_paths.h"
#include "datastore/pinned_files.h"
#include "datastore/shared_memory.h"

namespace datastore {

Subscription::Subscription(const Connection& connection, sr_datastore_t database)
    : connection_(connection), session_(connection.OpenSession(database)) {}

Subscription::~Subscription() {
  const Leaving leaving(connection_);
  subscription_.reset();
}

void Subscription::Add(const std::string& module, const Subscribe& subscribe,
                       const std::string& what_failed) {
  sr_subscription_ctx_t* subscription = subscription_.release();
  const int code = subscribe(session_.get(), &subscription);
  subscription_.reset(subscription);
  Check(code, what_failed, session_.get());
  Check(sr_get_event_pipe(subscription, &pipe_), what_failed, session_.get());
  for (std::string& name : FindFiles("sub_data_" + module + ".")) {
    event_files_.push_back(std::move(name));
  }
}

// The loss is looked for after the files were pinned: so they are this datastore's.
void Subscription::ProcessEvents(const std::string& what_failed) {
  const PinnedFiles files(event_files_);
  if (const std::string loss = LossReason(); !loss.empty()) throw Error(loss);
  const SharedMemoryDirectory pinned(files.directory());
  Check(sr_subscription_process_events(subscription_.get(), nullptr, nullptr), what_failed);
}

}  // namespace datastore
