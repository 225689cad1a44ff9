// Commits that wait to be delivered.

#ifndef PLATFORM_VXCONFD_SRC_COMMIT_QUEUE_H_
#define PLATFORM_VXCONFD_SRC_COMMIT_QUEUE_H_

#include <cstddef>
#include <deque>

#include "platform/vxconfd/src/data_tree.h"

namespace vxconfd {

struct Commit {
  DataTreePtr changes;  // the difference that it made; not null
  DataTreePtr data;     // the running data with it, where that has been read; else null
};

// In their order, and bounded by the nodes of their changes.
class CommitQueue {
 public:
  explicit CommitQueue(std::size_t node_limit) : node_limit_(node_limit) {}

  // False, with the commit dropped, when those that wait have reached the limit already. So a
  // commit of any size fits an empty queue.
  bool Add(Commit commit);

  // The first commit. REQUIRES: not empty.
  Commit Take();

  void Clear();
  bool empty() const { return waiting_.empty(); }

 private:
  struct Waiting {
    Commit commit;
    std::size_t nodes;
  };

  const std::size_t node_limit_;
  std::size_t nodes_ = 0;
  std::deque<Waiting> waiting_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_COMMIT_QUEUE_H_
