// The process's own copy of the subscribed modules' running data.

#ifndef PLATFORM_VXCONFD_SRC_MIRROR_H_
#define PLATFORM_VXCONFD_SRC_MIRROR_H_

#include <memory>

#include <confd/session.h>

#include "platform/vxconfd/src/data_tree.h"

namespace vxconfd {

// Holds what the handlers have been told of, so that a session of a handler that is behind reads
// the state that its commit made and no later one. Snapshots that are still open keep their state.
class Mirror {
 public:
  explicit Mirror(DataTreePtr data);

  const DataTree& data() const { return *data_; }
  const ContextPtr& context() const { return data_->context(); }

  // Makes the changes of one commit. False, with nothing changed, when they do not start from the
  // data that is held: then a commit was missed.
  bool Apply(const DataTree& changes);

  void Replace(DataTreePtr data);

  // `load` reads the modules that the mirror does not hold.
  std::shared_ptr<confd::Snapshot> TakeSnapshot(confd::ModuleLoader load) const;

 private:
  DataTreePtr data_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_MIRROR_H_
