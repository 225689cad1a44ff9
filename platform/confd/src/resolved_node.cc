#include "platform/confd/src/resolved_node.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string>

#include "platform/confd/src/error.h"
#include "platform/confd/src/path.h"

namespace confd {
namespace {

std::string Quoted(std::string_view name) { return "'" + std::string(name) + "'"; }

// Walks a path from the top. Its operations return false, with the error set, where it ends.
class Walk {
 public:
  Walk(SnapshotIndex& index, std::string_view path) : index_(index), path_(path) {}

  bool Run() {
    PathParser parser(path_);
    if (parser.AtEnd()) return Refuse("the path is empty");
    remembered_ = StartAtRecentEntry(parser);
    if (!remembered_ && index_.recent_list().IsIn(path_) && !StepFromRecentList(parser)) {
      return false;
    }
    while (!parser.AtEnd()) {
      if (!Step(parser)) return false;
    }
    return true;
  }

  const ResolvedNode& resolved() const { return resolved_; }

 private:
  bool StartAtRecentEntry(PathParser& parser) {
    const RecentEntries::Entry* entry = index_.recent().Find(path_);
    if (entry == nullptr) return false;
    resolved_ = {entry->node->schema, entry->node, true, false};
    parser.Skip(entry->path.size());
    return true;
  }

  bool StepFromRecentList(PathParser& parser) {
    const RecentList& list = index_.recent_list();
    resolved_ = {list.schema, list.first, list.first != nullptr, true};
    keys_ = list.keys;
    parser.Skip(list.path.size());
    PathStep step;
    step.name = list.schema->name;
    if (const char* error = parser.TakeSelector(&step)) return Refuse(error);
    return SelectAndRemember(step, parser);
  }

  bool Step(PathParser& parser) {
    PathStep step;
    if (const char* error = parser.Next(&step)) return Refuse(error);
    if (!CanDescend() || !Enter(step)) return false;
    if (!remembered_ && step.selector == PathStep::Selector::kKeys) RememberList(step);
    return SelectAndRemember(step, parser);
  }

  // Only of the outermost list, which is the long one.
  void RememberList(const PathStep& step) {
    if (resolved_.schema->nodetype != LYS_LIST || in_list_) return;
    const auto brace = static_cast<std::size_t>(step.keys.data() - path_.data()) - 1;
    RecentList& list = index_.recent_list();
    list.path = path_.substr(0, brace);
    list.schema = resolved_.schema;
    list.first = resolved_.node;
    list.keys = keys_;
  }

  bool SelectAndRemember(const PathStep& step, const PathParser& parser) {
    if (!Select(step)) return false;
    if (step.selector == PathStep::Selector::kNone) return true;
    in_list_ = true;
    if (!remembered_ && step.selector == PathStep::Selector::kKeys && resolved_.node != nullptr) {
      index_.recent().Add(path_.substr(0, parser.position(path_)), resolved_.node);
      remembered_ = true;
    }
    return true;
  }

  bool Refuse(std::string_view what) const {
    Fail(CONFD_ERR_BADPATH, path_, what);
    return false;
  }

  bool CanDescend() const {
    if (resolved_.schema == nullptr) return true;
    const char* name = resolved_.schema->name;
    if (resolved_.whole_list && resolved_.schema->nodetype == LYS_LIST) {
      return Refuse("the list " + Quoted(name) + " needs a key or a position here");
    }
    const bool inner = (resolved_.schema->nodetype & (LYS_CONTAINER | LYS_LIST)) != 0;
    return inner || Refuse("nothing can be below " + Quoted(name));
  }

  bool Enter(const PathStep& step) {
    const SchemaNode* child = index_.schema().FindChild(resolved_.schema, step.prefix, step.name);
    if (child == nullptr) return Refuse("no such node in the schema: " + FullName(step));
    resolved_ = ChildOf(index_, resolved_, child->node, child->implicit);
    keys_ = child->keys;
    return true;
  }

  static std::string FullName(const PathStep& step) {
    if (step.prefix.empty()) return Quoted(step.name);
    return Quoted(std::string(step.prefix) + ":" + std::string(step.name));
  }

  bool Select(const PathStep& step) {
    if (step.selector == PathStep::Selector::kNone) return true;
    if (resolved_.schema->nodetype != LYS_LIST) {
      return Refuse(Quoted(step.name) + " is not a list and takes no key and no position");
    }
    const bool by_keys = step.selector == PathStep::Selector::kKeys;
    if (by_keys && !CheckKeys(step)) return false;
    resolved_.node = by_keys ? index_.lists().Find(resolved_.node, step.keys)
                             : index_.lists().At(resolved_.node, step.position);
    resolved_.exists = resolved_.node != nullptr;
    resolved_.whole_list = false;
    return true;
  }

  // One key may hold blanks; several are told apart by them.
  bool CheckKeys(const PathStep& step) const {
    if (keys_ == 1) return true;
    const auto blanks = std::count(step.keys.begin(), step.keys.end(), ' ');
    const std::size_t given = static_cast<std::size_t>(blanks) + 1;
    return given == keys_ ||
           Refuse("the list " + Quoted(step.name) + " has " + std::to_string(keys_) +
                  " keys, the path gives " + std::to_string(given));
  }

  SnapshotIndex& index_;
  std::string_view path_;
  ResolvedNode resolved_;
  std::size_t keys_ = 0;     // that the list at resolved_ has
  bool in_list_ = false;     // the path has named an entry
  bool remembered_ = false;  // that entry is among the recent ones
};

}  // namespace

ResolvedNode ChildOf(SnapshotIndex& index, const ResolvedNode& parent, const lysc_node* schema,
                     bool implicit) {
  ResolvedNode child;
  child.schema = schema;
  child.node = parent.schema == nullptr ? index.FindTop(schema)
                                        : SnapshotIndex::FindFirst(lyd_child(parent.node), schema);
  child.exists = child.node != nullptr || (parent.exists && implicit);
  child.whole_list = (schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0;
  return child;
}

bool Resolve(SnapshotIndex& index, std::string_view path, ResolvedNode* resolved) {
  Walk walk(index, path);
  if (!walk.Run()) return false;
  *resolved = walk.resolved();
  return true;
}

}  // namespace confd
