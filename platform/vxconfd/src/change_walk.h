// The walk over a commit's changes for one subscription point.

#ifndef PLATFORM_VXCONFD_SRC_CHANGE_WALK_H_
#define PLATFORM_VXCONFD_SRC_CHANGE_WALK_H_

#include <libyang/libyang.h>

#include <functional>
#include <string>

#include <vxconfd/vxconfd.h>

namespace vxconfd {

struct WalkCalls {
  // A line for each change that has no form in the read API and is left out.
  std::function<void(const std::string& text)> skipped;
  // Before each callback; false ends the walk.
  std::function<bool()> go_on;
};

// Calls the point's callback for every change at or below its path, parents before children, in the
// order of the data. `diff` is the commit's difference as the datastore gives it; it is not
// changed.
//
//   list entry or container with presence   MOP_CREATED, MOP_DELETED (then nothing below it), or
//                                           MOP_MODIFIED when only something below it changed
//   leaf                                    MOP_VALUE_SET, also when its removal brings its default
//                                           back; else MOP_DELETED without a new value
//   other containers                        not reported, always descended
//
// Leaves that are there by default alone are not reported. What is above the path is not reported
// either, and what lies below a removed list entry not at all. Exceptions of the callback go
// through. False when `calls` ended the walk.
bool WalkChanges(const lyd_node* diff, const SubscriptionPoint& point, const WalkCalls& calls);

// Whether WalkChanges would report anything.
bool HasChanges(const lyd_node* diff, const SubscriptionPoint& point);

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_CHANGE_WALK_H_
