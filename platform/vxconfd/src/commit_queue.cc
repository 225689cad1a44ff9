#include "platform/vxconfd/src/commit_queue.h"

#include <utility>

namespace vxconfd {

bool CommitQueue::Add(Commit commit) {
  if (nodes_ >= node_limit_) return false;
  const std::size_t nodes = CountNodes(commit.changes->first());
  nodes_ += nodes;
  waiting_.push_back({std::move(commit), nodes});
  return true;
}

Commit CommitQueue::Take() {
  Commit commit = std::move(waiting_.front().commit);
  nodes_ -= waiting_.front().nodes;
  waiting_.pop_front();
  return commit;
}

void CommitQueue::Clear() {
  waiting_.clear();
  nodes_ = 0;
}

}  // namespace vxconfd
