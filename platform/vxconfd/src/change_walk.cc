#include "platform/vxconfd/src/change_walk.h"

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/vxconfd/src/key_path.h"

namespace vxconfd {
namespace {

enum class Operation { kNone, kCreate, kDelete, kReplace };

const char* Metadata(const lyd_node* node, const char* name) {
  const lyd_meta* found = lyd_find_meta(node->meta, nullptr, name);
  return found != nullptr ? lyd_get_meta_value(found) : nullptr;
}

// A node without an operation of its own has its parent's.
Operation OperationOf(const lyd_node* node, Operation inherited) {
  const char* name = Metadata(node, "yang:operation");
  if (name == nullptr) return inherited;
  switch (*name) {
    case 'c':
      return Operation::kCreate;
    case 'd':
      return Operation::kDelete;
    case 'r':
      return Operation::kReplace;
    default:
      return Operation::kNone;
  }
}

bool IsDefault(const lyd_node* leaf) { return (leaf->flags & LYD_DEFAULT) != 0; }

bool IsEntry(const lyd_node* node) {
  return node->schema->nodetype == LYS_LIST || lysc_is_np_cont(node->schema) == 0;
}

// What a changed leaf is reported as; nothing when it is not.
std::optional<confd_iter_op> LeafReport(const lyd_node* leaf, Operation operation) {
  switch (operation) {
    case Operation::kCreate:
      if (IsDefault(leaf)) return std::nullopt;
      return MOP_VALUE_SET;
    case Operation::kReplace:
      return MOP_VALUE_SET;
    case Operation::kDelete:
      if (IsDefault(leaf)) return std::nullopt;
      return MOP_DELETED;
    case Operation::kNone:  // at most made explicit, or left to the default, at the value it had
      break;
  }
  return std::nullopt;
}

confd_iter_op EntryReport(const lyd_node* entry, Operation operation) {
  switch (operation) {
    case Operation::kCreate:
      return MOP_CREATED;
    case Operation::kDelete:
      return MOP_DELETED;
    case Operation::kReplace:
      return lysc_is_userordered(entry->schema) != 0 ? MOP_MOVED_AFTER : MOP_MODIFIED;
    case Operation::kNone:
      break;
  }
  return MOP_MODIFIED;
}

class Walk {
 public:
  using Callback = std::function<confd_iter_ret(const lyd_node*, confd_iter_op, Operation)>;

  explicit Walk(Callback callback) : callback_(std::move(callback)) {}

  // Goes down the rest of the point's path from the siblings that begin with `node`.
  void Descend(const lyd_node* node, std::string_view path, Operation inherited) {
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    const std::string_view rest = path.substr(name.size());
    for (; node != nullptr && !stopped_; node = node->next) {
      if (name != node->schema->name) continue;
      const Operation operation = OperationOf(node, inherited);
      if (rest.empty()) {
        Visit(node, operation);
      } else if (operation != Operation::kDelete || !IsEntry(node)) {
        Descend(lyd_child(node), rest, operation);
      }
    }
  }

 private:
  void Visit(const lyd_node* node, Operation operation) {
    switch (node->schema->nodetype) {
      case LYS_LEAF:
        if (const auto change = LeafReport(node, operation)) CallBack(node, *change, operation);
        break;
      case LYS_LIST:
      case LYS_CONTAINER:
        if (!IsEntry(node)) {
          VisitChildren(node, operation);
        } else if (HasChange(node, operation)) {
          VisitEntry(node, operation);
        }
        break;
      default:
        if (HasChange(node, operation)) CallBack(node, MOP_VALUE_SET, operation);
        break;
    }
  }

  void VisitEntry(const lyd_node* entry, Operation operation) {
    const confd_iter_ret next = CallBack(entry, EntryReport(entry, operation), operation);
    if (operation != Operation::kDelete && next == ITER_RECURSE) VisitChildren(entry, operation);
  }

  void VisitChildren(const lyd_node* parent, Operation operation) {
    for (const lyd_node* child = lyd_child(parent); child != nullptr && !stopped_;
         child = child->next) {
      Visit(child, OperationOf(child, operation));
    }
  }

  confd_iter_ret CallBack(const lyd_node* node, confd_iter_op change, Operation operation) {
    const confd_iter_ret next = callback_(node, change, operation);
    if (next == ITER_STOP) stopped_ = true;
    return next;
  }

  // The datastore's difference also holds entries in which nothing that is reported changed.
  static bool HasChange(const lyd_node* node, Operation operation) {
    if ((node->schema->nodetype & LYD_NODE_INNER) == 0) {
      return LeafReport(node, operation).has_value();
    }
    if (IsEntry(node) && operation != Operation::kNone) return true;
    for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) {
      if (HasChange(child, OperationOf(child, operation))) return true;
    }
    return false;
  }

  Callback callback_;
  bool stopped_ = false;
};

// The read API reports these in ways of its own, which no handler here knows.
void RequireReadable(const lyd_node* node) {
  if ((node->schema->nodetype & (LYS_LEAF | LYS_LIST | LYS_CONTAINER)) != 0) return;
  throw UnreadableChange("changes of a " + std::string(lys_nodetype2str(node->schema->nodetype)) +
                         " are not reported");
}

// The value before the change; null when there was none.
const char* PreviousValue(const lyd_node* leaf, Operation operation) {
  if (operation == Operation::kReplace) return Metadata(leaf, "yang:orig-value");
  if (operation == Operation::kCreate) return nullptr;
  return lyd_get_value(leaf);
}

// What a callback gets of one change.
struct Report {
  Report(const lyd_node* node, confd_iter_op change, Operation operation, bool want_previous)
      : path(node) {
    if (node->schema->nodetype != LYS_LEAF) return;
    if (change == MOP_VALUE_SET) new_value.emplace(node->schema, lyd_get_value(node));
    const char* previous = PreviousValue(node, operation);
    if (want_previous && previous != nullptr) old_value.emplace(node->schema, previous);
  }

  KeyPath path;
  std::optional<Value> new_value;
  std::optional<Value> old_value;
};

std::string PathOf(const lyd_node* node) {
  std::array<char, 512> path = {};
  return lyd_path(node, LYD_PATH_STD, path.data(), path.size()) != nullptr ? path.data()
                                                                           : LYD_NAME(node);
}

confd_iter_ret CallBack(const SubscriptionPoint& point, Report& report, confd_iter_op change) {
  return point.callback(report.path.get(), change,
                        report.old_value ? report.old_value->get() : nullptr,
                        report.new_value ? report.new_value->get() : nullptr);
}

}  // namespace

bool WalkChanges(const lyd_node* diff, const SubscriptionPoint& point, const WalkCalls& calls) {
  const bool want_previous = (point.iter_flags & ITER_WANT_PREV) != 0;
  bool ended = false;
  Walk walk([&](const lyd_node* node, confd_iter_op change, Operation operation) {
    ended = !calls.go_on();
    if (ended) return ITER_STOP;
    std::optional<Report> report;
    try {
      RequireReadable(node);
      report.emplace(node, change, operation, want_previous);
    } catch (const UnreadableChange& reason) {
      calls.skipped("the change of " + PathOf(node) + " is skipped: " + reason.what());
      return ITER_CONTINUE;
    }
    return CallBack(point, *report, change);
  });
  walk.Descend(diff, point.path, Operation::kNone);
  return !ended;
}

bool HasChanges(const lyd_node* diff, const SubscriptionPoint& point) {
  bool found = false;
  Walk walk([&found](const lyd_node* /*node*/, confd_iter_op /*change*/, Operation /*operation*/) {
    found = true;
    return ITER_STOP;
  });
  walk.Descend(diff, point.path, Operation::kNone);
  return found;
}

}  // namespace vxconfd
