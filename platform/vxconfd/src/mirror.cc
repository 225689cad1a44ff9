#include "platform/vxconfd/src/mirror.h"

#include <string_view>
#include <utility>

namespace vxconfd {
namespace {

const char* Metadata(const lyd_node* node, const char* name) {
  const lyd_meta* found = lyd_find_meta(node->meta, nullptr, name);
  return found != nullptr ? lyd_get_meta_value(found) : nullptr;
}

// The node among `siblings` that a node of a difference is about; null when it is not there.
lyd_node* FindMatch(const lyd_node* siblings, const lyd_node* change) {
  if (siblings == nullptr) return nullptr;
  lyd_node* match = nullptr;
  if ((change->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0) {
    lyd_find_sibling_first(siblings, change, &match);
  } else {
    lyd_find_sibling_val(siblings, change->schema, nullptr, 0, &match);
  }
  return match;
}

bool HasValue(const lyd_node* leaf, const char* expected) {
  return expected == nullptr || std::string_view(lyd_get_value(leaf)) == expected;
}

bool Fits(const lyd_node* siblings, const lyd_node* changes);

// Whether the change starts from the data among `siblings`.
bool FitsOne(const lyd_node* siblings, const lyd_node* change, char operation) {
  const lyd_node* match = FindMatch(siblings, change);
  if (operation == 'c') return match == nullptr || lysc_is_dup_inst_list(change->schema) != 0;
  if (match == nullptr) return false;
  if (change->schema->nodetype == LYS_LEAF) {
    return HasValue(match,
                    operation == 'r' ? Metadata(change, "yang:orig-value") : lyd_get_value(change));
  }
  return operation == 'd' || Fits(lyd_child(match), lyd_child_no_keys(change));
}

// Looked at beforehand, since a difference that fails half way leaves half of it behind, and one
// that creates what is there would create it twice.
bool Fits(const lyd_node* siblings, const lyd_node* changes) {
  for (const lyd_node* change = changes; change != nullptr; change = change->next) {
    const char* operation = Metadata(change, "yang:operation");
    if (!FitsOne(siblings, change, operation != nullptr ? *operation : 'n')) return false;
  }
  return true;
}

// A container without presence is there by default as long as nothing in it was set.
void MarkDefault(lyd_node* container) {
  std::uint32_t flags = LYD_DEFAULT;
  for (const lyd_node* child = lyd_child(container); child != nullptr; child = child->next) {
    flags &= child->flags;
  }
  container->flags = (container->flags & ~std::uint32_t{LYD_DEFAULT}) | flags;
}

// A commit's difference does not always say which containers are there by default; the data that
// the datastore stores does.
void MarkDefaults(const lyd_node* siblings, const lyd_node* changes) {
  for (const lyd_node* change = changes; change != nullptr; change = change->next) {
    lyd_node* match = FindMatch(siblings, change);
    if (match == nullptr) continue;
    MarkDefaults(lyd_child(match), lyd_child_no_keys(change));
    if (lysc_is_np_cont(match->schema) != 0) MarkDefault(match);
  }
}

}  // namespace

Mirror::Mirror(DataTreePtr data) : data_(std::move(data)) {}

bool Mirror::Apply(const DataTree& changes) {
  const QuietYang quiet;
  if (!Fits(data_->first(), changes.first())) return false;
  if (data_.use_count() > 1) {
    DataTreePtr copy = CopyData(context(), data_->first());
    if (!copy) return false;
    data_ = std::move(copy);
  }
  if (lyd_diff_apply_all(data_->root(), changes.first()) != LY_SUCCESS) return false;
  MarkDefaults(data_->first(), changes.first());
  return true;
}

void Mirror::Replace(DataTreePtr data) { data_ = std::move(data); }

std::shared_ptr<confd::Snapshot> Mirror::TakeSnapshot(confd::ModuleLoader load) const {
  return std::make_shared<confd::Snapshot>(
      context(), std::shared_ptr<const lyd_node>(data_, data_->first()), std::move(load));
}

}  // namespace vxconfd
