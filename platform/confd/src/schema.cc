#include "platform/confd/src/schema.h"

#include <libyang/libyang.h>

#include "platform/confd/src/hash.h"

namespace confd {
namespace {

constexpr unsigned kDataNodes =
    LYS_CONTAINER | LYS_LIST | LYS_LEAF | LYS_LEAFLIST | LYS_ANYXML | LYS_ANYDATA;

// The next data node below `parent`, or at the top of `module` when that is null.
const lysc_node* NextDataNode(const lysc_node* last, const lysc_node* parent,
                              const lysc_module* module) {
  do {
    last = lys_getnext(last, parent, module, 0);
  } while (last != nullptr && (last->nodetype & kDataNodes) == 0);
  return last;
}

// The schema's own text that says `prefix` for this node's module; null when it is of another one.
const char* MatchPrefix(const lysc_node* node, std::string_view prefix) {
  if (prefix.empty()) return "";
  if (prefix == node->module->name) return node->module->name;
  return prefix == node->module->prefix ? node->module->prefix : nullptr;
}

const lysc_node* FindIn(const lysc_node* parent, const lysc_module* module, std::string_view prefix,
                        std::string_view name) {
  const lysc_node* node = nullptr;
  while ((node = NextDataNode(node, parent, module)) != nullptr) {
    if (name == node->name && MatchPrefix(node, prefix) != nullptr) return node;
  }
  return nullptr;
}

const lysc_node* FindTop(const ly_ctx* context, std::string_view prefix, std::string_view name) {
  std::uint32_t i = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &i)) {
    if (module->compiled == nullptr) continue;
    if (const lysc_node* node = FindIn(nullptr, module->compiled, prefix, name)) return node;
  }
  return nullptr;
}

std::size_t KeyCount(const lysc_node* list) {
  std::size_t count = 0;
  for (const lysc_node* node = lysc_node_child(list); lysc_is_key(node); node = node->next) ++count;
  return count;
}

}  // namespace

std::vector<const lysc_node*> SchemaChildren(const lysc_node* parent) {
  std::vector<const lysc_node*> children;
  const lysc_node* node = nullptr;
  while ((node = NextDataNode(node, parent, nullptr)) != nullptr) children.push_back(node);
  return children;
}

bool IsImplicit(const lysc_node* node) {
  if (lysc_node_when(node) != nullptr) return false;
  if (node->parent != nullptr && node->parent->nodetype == LYS_CASE) return false;
  switch (node->nodetype) {
    case LYS_CONTAINER:
      return (node->flags & LYS_PRESENCE) == 0;
    case LYS_LEAF:
      return DefaultOf(node) != nullptr;
    case LYS_LEAFLIST:
      return LY_ARRAY_COUNT(reinterpret_cast<const lysc_node_leaflist*>(node)->dflts) > 0;
    default:
      return false;
  }
}

const lyd_value* DefaultOf(const lysc_node* leaf) {
  return reinterpret_cast<const lysc_node_leaf*>(leaf)->dflt;
}

std::size_t SchemaIndex::NameHash::operator()(const Name& name) const {
  Fnv1a hash;
  hash.Add(name.prefix);
  hash.Add(name.name);
  return hash.value() ^ std::hash<const void*>()(name.parent);
}

const SchemaNode* SchemaIndex::FindChild(const lysc_node* parent, std::string_view prefix,
                                         std::string_view name) {
  const Name wanted = {parent, prefix, name};
  if (last_ != nullptr && last_->first == wanted) return &last_->second;
  const auto known = found_.find(wanted);
  if (known != found_.end()) {
    last_ = &*known;
    return &last_->second;
  }
  const lysc_node* node = Search(parent, prefix, name);
  if (node == nullptr) return nullptr;
  const Name own_name = {parent, MatchPrefix(node, prefix), node->name};
  return &found_.emplace(own_name, SchemaNode{node, IsImplicit(node), KeyCount(node)})
              .first->second;
}

const lysc_node* SchemaIndex::Search(const lysc_node* parent, std::string_view prefix,
                                     std::string_view name) {
  if (parent == nullptr) return FindTop(context_, prefix, name);
  return FindIn(parent, nullptr, prefix, name);
}

}  // namespace confd
