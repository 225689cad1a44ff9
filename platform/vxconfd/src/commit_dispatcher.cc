#include "platform/vxconfd/src/commit_dispatcher.h"

#include <chrono>
#include <utility>

namespace vxconfd {

CommitDispatcher::CommitDispatcher(vxmw_t* mw, DispatcherCalls calls, DispatcherLimits limits)
    : calls_(std::move(calls)),
      small_commit_(limits.small_commit),
      queue_(limits.queue),
      turn_(mw, [this] { Serve(); }) {}

void CommitDispatcher::Stop() {
  turn_.Disarm();
  queue_.Clear();
  shared_.reset();
  woken_ = waiting_ = false;
}

bool CommitDispatcher::Take(Commit commit) {
  if (!busy() && CountNodes(commit.changes->first()) <= small_commit_) return Deliver(commit);
  if (given_up_ || !queue_.Add(std::move(commit))) return false;
  WakeWhenIdle();
  return true;
}

void CommitDispatcher::WakeWhenIdle() {
  woken_ = true;
  turn_.Arm(std::chrono::milliseconds(0));
  SetWaiting(true);
}

void CommitDispatcher::DeliverAll() {
  while (!queue_.empty()) DeliverOne();
}

void CommitDispatcher::Serve() {
  woken_ = false;
  if (!queue_.empty()) DeliverOne();
  if (!busy()) calls_.idle();
  if (given_up_) return;
  if (woken_ || !queue_.empty()) {
    turn_.Arm(std::chrono::milliseconds(0));
  } else {
    SetWaiting(false);
  }
}

void CommitDispatcher::DeliverOne() { Deliver(queue_.Take()); }

bool CommitDispatcher::Deliver(const Commit& commit) {
  struct Delivering {
    explicit Delivering(CommitDispatcher& owner) : dispatcher(owner) {
      dispatcher.delivering_ = true;
    }
    ~Delivering() {
      dispatcher.delivering_ = false;
      dispatcher.shared_.reset();
    }
    CommitDispatcher& dispatcher;
  };
  if (!MakeInMirror(commit)) {
    queue_.Clear();
    calls_.mismatch();
    return false;
  }
  const Delivering delivering(*this);
  given_up_ = !calls_.deliver(commit.changes->first());
  if (given_up_) queue_.Clear();
  return true;
}

bool CommitDispatcher::MakeInMirror(const Commit& commit) {
  if (!commit.data) return mirror_->Apply(*commit.changes);
  mirror_->Replace(commit.data);
  return true;
}

void CommitDispatcher::SetWaiting(bool waiting) {
  if (std::exchange(waiting_, waiting) != waiting) calls_.waiting(waiting);
}

std::shared_ptr<confd::Snapshot> CommitDispatcher::TakeSnapshot(const confd::ModuleLoader& load) {
  if (!delivering_) return mirror_->TakeSnapshot(load);
  if (!shared_) shared_ = mirror_->TakeSnapshot(load);
  return shared_;
}

}  // namespace vxconfd
