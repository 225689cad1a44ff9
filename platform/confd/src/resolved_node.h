// Where a path leads.

#ifndef PLATFORM_CONFD_SRC_RESOLVED_NODE_H_
#define PLATFORM_CONFD_SRC_RESOLVED_NODE_H_

#include <string_view>

#include "platform/confd/src/snapshot_index.h"

namespace confd {

// A node that the schema knows, whether the data has it or not.
struct Place {
  const lysc_node* schema = nullptr;  // null only above the top-level nodes
  const lyd_node* node = nullptr;     // null when absent, and when there only implicitly
  bool exists = true;
  bool whole_list = false;  // not one entry, but the list; `node` is its first entry
};

// The child `schema` of `parent`. `implicit` is IsImplicit(schema).
Place ChildOf(Store& store, const Place& parent, const lysc_node* schema, bool implicit);

// Follows an absolute path. False, with the error set, when the schema has no such path.
bool Resolve(Store& store, std::string_view path, Place* place);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_RESOLVED_NODE_H_
