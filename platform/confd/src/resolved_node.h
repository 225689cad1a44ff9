// The node that a path names.

#ifndef PLATFORM_CONFD_SRC_RESOLVED_NODE_H_
#define PLATFORM_CONFD_SRC_RESOLVED_NODE_H_

#include <string_view>

#include "platform/confd/src/snapshot_index.h"

namespace confd {

// A node that the schema knows, whether the data has it or not.
struct ResolvedNode {
  const lysc_node* schema = nullptr;  // null only above the top-level nodes
  const lyd_node* node = nullptr;     // null when absent, and when there only implicitly
  bool exists = true;
  bool whole_list = false;  // not one entry, but the list; `node` is its first entry
};

// The child `schema` of `parent`. `implicit` is IsImplicit(schema).
ResolvedNode ChildOf(SnapshotIndex& index, const ResolvedNode& parent, const lysc_node* schema,
                     bool implicit);

// Follows an absolute path. False, with the error set, when the schema has no such path.
bool Resolve(SnapshotIndex& index, std::string_view path, ResolvedNode* resolved);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_RESOLVED_NODE_H_
