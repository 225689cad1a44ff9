#include "platform/confd/src/object.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include <confd/session.h>

#include "platform/confd/src/resolved_node.h"

namespace confd {
namespace {

constexpr unsigned kValueNodes = LYS_LEAF | LYS_LEAFLIST;

confd_value_t TagValue(const lysc_node* node) {
  confd_value_t value = {C_XMLTAG, {}};
  value.val.xmltag = {TagHash(node), NamespaceHash(node->module)};
  return value;
}

ObjectSlot MakeSlot(const lysc_node* node) {
  ObjectSlot slot = {node, ValueKind::kUnsupported, IsImplicit(node), {C_NOEXISTS, {}}, 0};
  if ((node->nodetype & kValueNodes) != 0) slot.kind = KindOf(node);
  if (node->nodetype == LYS_CONTAINER) slot.tag = TagValue(node);
  return slot;
}

void AddChildren(const lysc_node* parent, ObjectLayout& layout) {
  for (const lysc_node* child : SchemaChildren(parent)) {
    const std::size_t at = layout.size();
    layout.push_back(MakeSlot(child));
    if (child->nodetype == LYS_CONTAINER) AddChildren(child, layout);
    layout[at].behind = layout.size();
  }
}

// Adds values to a C_LIST whose array has room for them.
class ListBuilder {
 public:
  ListBuilder(const SnapshotIndex& index, ValueKind kind, std::size_t room)
      : index_(index), kind_(kind) {
    list_.val.list.ptr = static_cast<confd_value_t*>(std::calloc(room, sizeof(confd_value_t)));
    if (list_.val.list.ptr == nullptr) throw std::bad_alloc();
  }
  ~ListBuilder() { confd_free_value(&list_); }
  ListBuilder(const ListBuilder&) = delete;
  ListBuilder& operator=(const ListBuilder&) = delete;

  bool Add(const lyd_value& value) {
    confd_list& list = list_.val.list;
    if (!ToConfdValue(index_.context(), value, kind_, &list.ptr[list.size])) return false;
    ++list.size;
    return true;
  }

  confd_value_t Release() {
    const confd_value_t list = list_;
    list_.type = C_NOEXISTS;
    return list;
  }

 private:
  const SnapshotIndex& index_;
  ValueKind kind_;
  confd_value_t list_ = {C_LIST, {}};
};

const lyd_value& TermValue(const lyd_node* node) {
  return reinterpret_cast<const lyd_node_term*>(node)->value;
}

bool AddDefaults(const lysc_node* schema, ListBuilder& list) {
  lyd_value* const* defaults = reinterpret_cast<const lysc_node_leaflist*>(schema)->dflts;
  return std::all_of(defaults, defaults + LY_ARRAY_COUNT(defaults),
                     [&](const lyd_value* value) { return list.Add(*value); });
}

bool AddEntries(const lyd_node* first, ListBuilder& list) {
  for (const lyd_node* node = first; node != nullptr; node = NextEntry(node)) {
    if (!list.Add(TermValue(node))) return false;
  }
  return true;
}

std::size_t CountValues(const ResolvedNode& leaf_list) {
  if (leaf_list.node == nullptr) {
    return LY_ARRAY_COUNT(reinterpret_cast<const lysc_node_leaflist*>(leaf_list.schema)->dflts);
  }
  std::size_t count = 0;
  for (const lyd_node* node = leaf_list.node; node != nullptr; node = NextEntry(node)) ++count;
  return count;
}

class Filler {
 public:
  Filler(SnapshotIndex& index, const ObjectLayout& layout, confd_value_t* values)
      : index_(index), layout_(layout), values_(values) {}

  // Fills the slots from `begin`, a child of `parent`, up to `end`.
  bool Fill(const ResolvedNode& parent, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; i = layout_[i].behind) {
      if (layout_[i].schema->nodetype == LYS_CONTAINER) {
        if (!FillContainer(parent, i, end)) return false;
      } else if (layout_[i].schema->nodetype != LYS_LIST && !FillValue(parent, i)) {
        failed_ = layout_[i].schema;
        return false;
      }
    }
    return true;
  }

  const lysc_node* failed() const { return failed_; }

 private:
  ResolvedNode Child(const ResolvedNode& parent, const ObjectSlot& slot) {
    if (!parent.exists) return {slot.schema, nullptr, false, false};
    return ChildOf(index_, parent, slot.schema, slot.implicit);
  }

  bool FillContainer(const ResolvedNode& parent, std::size_t i, std::size_t end) {
    const ResolvedNode container = Child(parent, layout_[i]);
    if (!container.exists) return true;
    values_[i] = layout_[i].tag;
    return Fill(container, i + 1, std::min(layout_[i].behind, end));
  }

  bool FillValue(const ResolvedNode& parent, std::size_t i) {
    const ObjectSlot& slot = layout_[i];
    if ((slot.schema->nodetype & kValueNodes) == 0) return true;
    const ResolvedNode node = Child(parent, slot);
    if (!node.exists) return true;
    if (node.whole_list) return ReadLeafList(index_, node, slot.kind, &values_[i]);
    return ToConfdValue(index_.context(), LeafValue(node), slot.kind, &values_[i]);
  }

  SnapshotIndex& index_;
  const ObjectLayout& layout_;
  confd_value_t* values_;
  const lysc_node* failed_ = nullptr;
};

}  // namespace

ObjectLayout MakeObjectLayout(const lysc_node* object) {
  ObjectLayout layout;
  AddChildren(object, layout);
  return layout;
}

const lyd_value& LeafValue(const ResolvedNode& leaf) {
  return leaf.node != nullptr ? TermValue(leaf.node) : *DefaultOf(leaf.schema);
}

bool ReadLeafList(const SnapshotIndex& index, const ResolvedNode& leaf_list, ValueKind kind,
                  confd_value_t* value) {
  ListBuilder list(index, kind, CountValues(leaf_list));
  const bool good = leaf_list.node != nullptr ? AddEntries(leaf_list.node, list)
                                              : AddDefaults(leaf_list.schema, list);
  if (good) *value = list.Release();
  return good;
}

const lysc_node* FillObject(SnapshotIndex& index, const ResolvedNode& object, std::size_t n,
                            confd_value_t* values) {
  const ObjectLayout& layout = index.LayoutOf(object.schema);
  Filler filler(index, layout, values);
  filler.Fill(object, 0, std::min(n, layout.size()));
  return filler.failed();
}

}  // namespace confd
