// Containers and list entries as arrays of values.

#ifndef PLATFORM_CONFD_SRC_OBJECT_H_
#define PLATFORM_CONFD_SRC_OBJECT_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include <confd_lib.h>

#include "platform/confd/src/value.h"

struct lyd_value;
struct lysc_node;

namespace confd {

// What one position of the array holds.
struct ObjectSlot {
  const lysc_node* schema;
  ValueKind kind;      // of a leaf or leaf-list
  bool implicit;       // there whenever the parent is
  confd_value_t tag;   // of a container: the value that stands for it
  std::size_t behind;  // the position behind the node and all below it
};

// The whole array of a container or list entry, depth first in schema order: the same for all
// entries of a list.
using ObjectLayout = std::vector<ObjectSlot>;

ObjectLayout MakeObjectLayout(const lysc_node* object);

class SnapshotIndex;
struct ResolvedNode;

// Fills `values` with the first `n` values of `object`, or as many as it has; they are released by
// confd_free_value even after a failure. Returns null, or the leaf whose value has no ConfD form.
// REQUIRES: `values` hold C_NOEXISTS.
const lysc_node* FillObject(SnapshotIndex& index, const ResolvedNode& object, std::size_t n,
                            confd_value_t* values);

// Fills `*value` with the values of a leaf-list that is there. The caller releases it. False, with
// `*value` untouched, when one has no ConfD form.
bool ReadLeafList(const SnapshotIndex& index, const ResolvedNode& leaf_list, ValueKind kind,
                  confd_value_t* value);

// The value of a leaf that is there, or its default.
const lyd_value& LeafValue(const ResolvedNode& leaf);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_OBJECT_H_
