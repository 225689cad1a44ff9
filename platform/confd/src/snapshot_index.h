// The data of a snapshot and the look-up tables that reading it builds up.

#ifndef PLATFORM_CONFD_SRC_SNAPSHOT_INDEX_H_
#define PLATFORM_CONFD_SRC_SNAPSHOT_INDEX_H_

#include <memory>
#include <unordered_map>
#include <vector>

#include <confd/session.h>

#include "platform/confd/src/list_index.h"
#include "platform/confd/src/object.h"
#include "platform/confd/src/recent_entries.h"
#include "platform/confd/src/schema.h"

namespace confd {

class ListMembers;

class SnapshotIndex {
 public:
  SnapshotIndex(std::shared_ptr<const ly_ctx> context, std::shared_ptr<const lyd_node> tree,
                ModuleLoader load);
  ~SnapshotIndex();
  SnapshotIndex(const SnapshotIndex&) = delete;
  SnapshotIndex& operator=(const SnapshotIndex&) = delete;

  const ly_ctx* context() const { return context_.get(); }
  SchemaIndex& schema() { return schema_; }
  ListIndexes& lists() { return lists_; }
  RecentEntries& recent() { return recent_; }
  RecentList& recent_list() { return recent_list_; }
  ListMembers& members() { return *members_; }
  std::vector<confd_value_t>& batch_storage() { return batch_storage_; }
  RecentBatch& recent_batch() { return recent_batch_; }

  // The first node of this schema at the top of the data; null when there is none. Throws what the
  // loader throws.
  const lyd_node* FindTop(const lysc_node* schema);

  // The first node of this schema among siblings below the top that begin with `sibling`; null when
  // there is none.
  static const lyd_node* FindFirst(const lyd_node* sibling, const lysc_node* schema);

  // The layout of a container or of a list's entries, made once.
  const ObjectLayout& LayoutOf(const lysc_node* object);

 private:
  const lyd_node* Load(const lysc_node* schema);
  void AddTopNodes(const lyd_node* first);

  // The schema outlives the data.
  std::shared_ptr<const ly_ctx> context_;
  std::shared_ptr<const lyd_node> tree_;
  ModuleLoader load_;
  std::unordered_map<const lys_module*, std::shared_ptr<const lyd_node>> loaded_;
  SchemaIndex schema_;
  ListIndexes lists_;
  RecentEntries recent_;
  RecentList recent_list_;
  std::unique_ptr<ListMembers> members_;
  std::unordered_map<const lysc_node*, const lyd_node*> top_nodes_;
  std::unordered_map<const lysc_node*, ObjectLayout> layouts_;
  std::vector<confd_value_t> batch_storage_;
  RecentBatch recent_batch_;
};

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_SNAPSHOT_INDEX_H_
