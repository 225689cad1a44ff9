// Trees of data and the schema they belong to, with owners.

#ifndef PLATFORM_VXCONFD_SRC_DATA_TREE_H_
#define PLATFORM_VXCONFD_SRC_DATA_TREE_H_

#include <libyang/libyang.h>

#include <cstddef>
#include <memory>
#include <string>

namespace vxconfd {

// A schema context that is kept as long as its data.
using ContextPtr = std::shared_ptr<const ly_ctx>;

// Top-level siblings and all below them; they are freed with this object.
class DataTree {
 public:
  explicit DataTree(ContextPtr context, lyd_node* first = nullptr);
  ~DataTree();
  DataTree(const DataTree&) = delete;
  DataTree& operator=(const DataTree&) = delete;

  const ContextPtr& context() const { return context_; }
  const lyd_node* first() const { return first_; }  // null for no data
  lyd_node** root() { return &first_; }             // for calls that change the tree

 private:
  ContextPtr context_;
  lyd_node* first_;
};
using DataTreePtr = std::shared_ptr<DataTree>;

// While it lives, failures of the YANG library on this thread print nothing.
class QuietYang {
 public:
  QuietYang();
  ~QuietYang();
  QuietYang(const QuietYang&) = delete;
  QuietYang& operator=(const QuietYang&) = delete;

 private:
  unsigned options_;
};

// A context of its own with the modules of `models`, in the same revisions and with the same
// features. Data in it does not keep others from installing models, as data in a context of the
// datastore does. Throws DatastoreError.
ContextPtr CopyModels(const ly_ctx* models);

// A copy of siblings of any context, with their metadata and default flags. Null when the schema of
// `context` does not allow them.
DataTreePtr CopyData(const ContextPtr& context, const lyd_node* siblings);

// As CopyData, but frees each node once it is copied, so that large data does not need its memory
// twice. `*siblings`, the first of all, is null afterwards, or the first of those that are left.
DataTreePtr MoveData(const ContextPtr& context, lyd_node** siblings);

// As CopyData, but what the schema does not know is left out. Null when a value is not allowed.
DataTreePtr CopyKnownData(const ContextPtr& context, const lyd_node* siblings);

// True only if the siblings, of any context, do not differ from `held`, default flags included.
bool HasEqualData(const DataTree& held, const lyd_node* siblings);

// What turns `from` into `to`, default flags included. Both are of one context. Throws
// DatastoreError.
DataTreePtr Difference(const DataTree& from, const DataTree& to);

// Number of nodes of siblings and all below them.
std::size_t CountNodes(const lyd_node* siblings);

// Number of changes in a difference; what is created or deleted with its parent is not counted.
int CountChanges(const lyd_node* difference);

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_DATA_TREE_H_
