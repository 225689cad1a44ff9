// Follows the running datastore: every change reaches the handlers once, also the ones that the
// datastore did not wait for.

#ifndef PLATFORM_VXCONFD_SRC_COMMIT_TRACKER_H_
#define PLATFORM_VXCONFD_SRC_COMMIT_TRACKER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <vxmw/event.h>

#include "platform/vxconfd/src/commit_dispatcher.h"
#include "platform/vxconfd/src/data_tree.h"
#include "platform/vxconfd/src/datastore.h"
#include "platform/vxconfd/src/log.h"
#include "platform/vxconfd/src/subscription.h"

namespace vxconfd {

// Where to follow the datastore.
struct WatchedPaths {
  std::vector<const char*> paths;
  std::uint32_t priority = 0;
};

struct TrackerCalls {
  // A difference of the running data that the mirror has made already. False when the delivery was
  // given up, since the process is to end.
  std::function<bool(const lyd_node* difference)> deliver;
  // Commits wait to be delivered, or, with false, all have been.
  std::function<void(bool waiting)> waiting;
  // The datastore is lost. The owner disconnects, and connects again later.
  std::function<void(const std::string& reason)> lost;
};

// A commit's own difference is applied to the mirror and delivered. The datastore takes an event
// back when nobody takes it within the committer's time-out, and a committer that is killed tells
// nobody; so whenever there is a sign of that, and some seconds after every commit, the running
// data is read and compared with the mirror, and what differs is delivered in the same way.
//
// A fresh copy may hold a commit whose event is still to come. Until a comparison finds nothing
// new, an event is therefore not applied, but makes the tracker compare again: at once, or when all
// that waits has been delivered. It does so, too, after commits for which the queue had no room.
class CommitTracker {
 public:
  CommitTracker(vxmw_t* mw, const Log& log, TrackerCalls calls, DispatcherLimits limits = {});

  // Throws DatastoreError. The mirror holds the running data from the first time on; later it keeps
  // what was delivered before the connection was lost, for DeliverMissed.
  void Connect(const WatchedPaths& watched);
  void Disconnect();

  // Delivers what changed while there was no connection. Throws DatastoreError.
  void DeliverMissed();

  // To be called often while a commit is delivered: takes others, so that nobody waits for it.
  void TakeWaiting();

  // Of the running database: what has been delivered. REQUIRES: connected.
  std::shared_ptr<confd::Snapshot> TakeSnapshot(cdb_db_type database);

 private:
  struct Fresh {
    std::string modified;
    DataTreePtr data;        // null when it equals the mirror's
    DataTreePtr difference;  // from the mirror
  };

  void Subscribe(const WatchedPaths& watched);
  void OnCommit(const lyd_node* diff);
  void OnMissed(bool more_to_come);
  void OnIdle();
  bool Take(const lyd_node* diff);

  Fresh Compare();
  void CatchUp();
  void Adopt(const Fresh& fresh);
  void ReportMissed(const lyd_node* difference);

  void Check();
  std::string LossReason() const;
  bool NeedsComparison();
  void Verify();
  void FollowModels();
  DataTreePtr CarryOver(const ContextPtr& context) const;

  vxmw_t* const mw_;
  const Log& log_;
  const TrackerCalls calls_;
  Modules modules_;
  std::shared_ptr<Datastore> datastore_;
  CommitDispatcher dispatcher_;
  std::uint32_t models_id_ = 0;
  std::unique_ptr<Subscription> subscription_;

  bool comparing_ = false;  // events only make the tracker compare
  bool missed_ = false;     // there was a sign that the next difference is more than a commit
  bool suspected_ = false;  // the last comparison found a difference that no event explained
  std::string seen_;        // LastModified before the last comparison
  std::string logged_;      // the latest failure, so that it is written once
  std::string failure_;     // of the subscription
  std::chrono::steady_clock::time_point next_verification_;
  std::chrono::steady_clock::time_point next_taking_;
  vxmw::TimerSource timer_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_COMMIT_TRACKER_H_
