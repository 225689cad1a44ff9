#include "platform/confd/src/snapshot_index.h"

#include <libyang/libyang.h>

#include <cstddef>
#include <utility>

#include "platform/confd/src/list_members.h"

namespace confd {
namespace {

constexpr std::size_t kFewSiblings = 8;  // nodes that are faster walked than hashed

}  // namespace

SnapshotIndex::SnapshotIndex(std::shared_ptr<const ly_ctx> context,
                             std::shared_ptr<const lyd_node> tree, ModuleLoader load)
    : context_(std::move(context)),
      tree_(std::move(tree)),
      load_(std::move(load)),
      schema_(context_.get()),
      members_(std::make_unique<ListMembers>()) {}

SnapshotIndex::~SnapshotIndex() = default;

const lyd_node* SnapshotIndex::FindFirst(const lyd_node* sibling, const lysc_node* schema) {
  const lyd_node* node = sibling;
  for (std::size_t i = 0; node != nullptr && i < kFewSiblings; ++i, node = node->next) {
    if (node->schema == schema) return node;
  }
  if (node == nullptr) return nullptr;
  lyd_node* match = nullptr;
  lyd_find_sibling_val(sibling, schema, nullptr, 0, &match);
  return match;
}

// Top-level siblings are the only ones for which the tree has no hash table.
const lyd_node* SnapshotIndex::FindTop(const lysc_node* schema) {
  if (top_nodes_.empty()) AddTopNodes(tree_.get());
  const auto found = top_nodes_.find(schema);
  return found != top_nodes_.end() ? found->second : Load(schema);
}

void SnapshotIndex::AddTopNodes(const lyd_node* first) {
  const lysc_node* last = nullptr;
  for (const lyd_node* node = first; node != nullptr; node = node->next) {
    if (node->schema != last) top_nodes_.try_emplace(node->schema, node);
    last = node->schema;
  }
}

const lyd_node* SnapshotIndex::Load(const lysc_node* schema) {
  if (!load_ || loaded_.contains(schema->module)) return nullptr;
  const auto& tree = loaded_.emplace(schema->module, load_(schema->module)).first->second;
  AddTopNodes(tree.get());
  const auto found = top_nodes_.find(schema);
  return found != top_nodes_.end() ? found->second : nullptr;
}

const ObjectLayout& SnapshotIndex::LayoutOf(const lysc_node* object) {
  const auto known = layouts_.find(object);
  if (known != layouts_.end()) return known->second;
  return layouts_.emplace(object, MakeObjectLayout(object)).first->second;
}

Snapshot::Snapshot(std::shared_ptr<const ly_ctx> context, std::shared_ptr<const lyd_node> tree,
                   ModuleLoader load)
    : index_(
          std::make_unique<SnapshotIndex>(std::move(context), std::move(tree), std::move(load))) {}

Snapshot::~Snapshot() = default;

}  // namespace confd
