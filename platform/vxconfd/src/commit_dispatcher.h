// Brings commits to the mirror and from there to the handlers.

#ifndef PLATFORM_VXCONFD_SRC_COMMIT_DISPATCHER_H_
#define PLATFORM_VXCONFD_SRC_COMMIT_DISPATCHER_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

#include <vxmw/event.h>

#include "platform/vxconfd/src/commit_queue.h"
#include "platform/vxconfd/src/mirror.h"

namespace vxconfd {

struct DispatcherCalls {
  // A difference of the running data that the mirror has made already. False when the delivery was
  // given up, since the process is to end.
  std::function<bool(const lyd_node* difference)> deliver;
  // Commits wait to be delivered, or, with false, all have been.
  std::function<void(bool waiting)> waiting;
  // A commit does not start from what the mirror holds. It was dropped with all that waited.
  std::function<void()> mismatch;
  // From the loop: no commit waits any more.
  std::function<void()> idle;
};

// In nodes of a commit's difference.
struct DispatcherLimits {
  std::size_t small_commit = 2000;  // the largest whose committer waits for its delivery
  std::size_t queue = 250'000;      // that may wait
};

// One commit at a time, in their order. The mirror makes a commit's changes right before its
// handlers are called, so that they read the state that this commit made. A small commit is
// delivered while its committer waits; a large one, and those that come before it has been
// delivered, wait in a queue that is served from the loop, and nobody waits for them.
class CommitDispatcher {
 public:
  CommitDispatcher(vxmw_t* mw, DispatcherCalls calls, DispatcherLimits limits = {});

  // Goes on from this state of the running data. REQUIRES: not busy.
  void Reset(DataTreePtr data) { mirror_.emplace(std::move(data)); }
  // Drops what waits; the mirror holds what has been delivered.
  void Stop();

  // Null before the first Reset.
  const Mirror* mirror() const { return mirror_ ? &*mirror_ : nullptr; }

  // True while a commit waits or is being delivered, and for ever once a delivery was given up.
  bool busy() const { return delivering_ || given_up_ || !queue_.empty(); }

  // Changes are of the mirror's context. False when the commit was dropped: it does not start from
  // what the mirror holds, or too much waits. What a handler throws goes through.
  bool Take(Commit commit);

  // Calls `idle` from the loop once nothing waits.
  void WakeWhenIdle();

  // Delivers at once what waits. What a handler throws goes through.
  void DeliverAll();

  // The sessions of one delivery share a snapshot. `load` reads what the mirror does not hold.
  std::shared_ptr<confd::Snapshot> TakeSnapshot(const confd::ModuleLoader& load);

 private:
  bool Deliver(const Commit& commit);
  bool MakeInMirror(const Commit& commit);
  void DeliverOne();
  void Serve();
  void SetWaiting(bool waiting);

  const DispatcherCalls calls_;
  const std::size_t small_commit_;
  std::optional<Mirror> mirror_;
  CommitQueue queue_;
  bool delivering_ = false;
  bool given_up_ = false;
  bool woken_ = false;                       // a turn is due although the queue may be empty
  bool waiting_ = false;                     // as it was told
  std::shared_ptr<confd::Snapshot> shared_;  // by the sessions of one delivery
  vxmw::TimerSource turn_;                   // of the loop, to deliver the next commit
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_COMMIT_DISPATCHER_H_
