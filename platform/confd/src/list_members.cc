#include "platform/confd/src/list_members.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <bit>

#include "platform/confd/src/hash.h"
#include "platform/confd/src/list_index.h"
#include "platform/confd/src/path.h"

namespace confd {
namespace {

constexpr int kEnough = 4;  // paths of one shape in a row that are worth an index

// A path of the shape before{outer}between{inner}, braces included in what is around the keys.
struct Shape {
  std::string_view before;
  std::string_view between;
  std::string_view inner;
};

std::optional<Shape> ParseShape(std::string_view path) {
  const std::size_t open = path.find('{');
  const std::size_t close = path.find('}');
  if (open == std::string_view::npos || close == std::string_view::npos) return std::nullopt;
  const std::string_view rest = path.substr(close);
  const std::size_t inner = rest.find('{');
  if (inner == std::string_view::npos || rest.find('}', inner) != rest.size() - 1 ||
      rest.substr(0, inner).find('[') != std::string_view::npos) {
    return std::nullopt;
  }
  return Shape{path.substr(0, open + 1), rest.substr(0, inner + 1),
               rest.substr(inner + 1, rest.size() - inner - 2)};
}

bool HasOneKey(const lysc_node* list) {
  const lysc_node* first = lysc_node_child(list);
  return lysc_is_key(first) && !(first->next != nullptr && lysc_is_key(first->next));
}

std::string_view KeyOf(const lyd_node* entry) { return lyd_get_value(lyd_child(entry)); }

// The schema nodes of a relative path below `parent`; empty when the last is no list of one key.
std::vector<const lysc_node*> SchemaSteps(SnapshotIndex& index, const lysc_node* parent,
                                          std::string_view path) {
  std::vector<const lysc_node*> steps;
  PathParser parser(path);
  for (PathStep step; !parser.AtEnd() && parser.Next(&step) == nullptr;) {
    const SchemaNode* child = index.schema().FindChild(parent, step.prefix, step.name);
    if (child == nullptr) return {};
    steps.push_back(parent = child->node);
  }
  if (steps.empty() || steps.back()->nodetype != LYS_LIST || !HasOneKey(steps.back())) return {};
  return steps;
}

}  // namespace

bool ListMembers::IsHolder(std::string_view key) const {
  if (holders_.size() == 1) return holders_.front() == key;
  return std::binary_search(holders_.begin(), holders_.end(), key);
}

std::optional<bool> ListMembers::FindOther(std::string_view path) {
  const auto shape = ParseShape(path);
  if (!shape || shape->before != before_ || shape->between != between_) return std::nullopt;
  behind_ = path.substr(path.find('}'));
  SelectHolders(shape->inner);
  return Find(path);
}

void ListMembers::SelectHolders(std::string_view inner) {
  holders_.clear();
  const std::uint32_t hash = HashText(inner);
  for (std::uint32_t at = slots_[hash & (slots_.size() - 1)]; at != 0; at = members_[at - 1].next) {
    const Member& member = members_[at - 1];
    if (member.hash == hash && member.inner == inner) holders_.push_back(member.outer);
  }
  std::sort(holders_.begin(), holders_.end());
}

void ListMembers::Add(SnapshotIndex& index, std::string_view path) {
  const auto shape = ParseShape(path);
  if (!shape) return;
  if (shape->before != candidate_before_ || shape->between != candidate_between_) {
    candidate_before_ = shape->before;
    candidate_between_ = shape->between;
    in_a_row_ = 0;
  }
  if (++in_a_row_ == kEnough) Build(index);
}

void ListMembers::Build(SnapshotIndex& index) {
  const std::string_view outer_path(candidate_before_.data(), candidate_before_.size() - 1);
  const std::string_view inner_path(candidate_between_.data() + 1, candidate_between_.size() - 2);
  ResolvedNode outer;
  if (!Resolve(index, outer_path, &outer) || outer.schema->nodetype != LYS_LIST ||
      !HasOneKey(outer.schema)) {
    return;
  }
  const auto steps = SchemaSteps(index, outer.schema, inner_path);
  if (steps.empty()) return;
  members_.clear();
  for (; outer.node != nullptr; outer.node = NextEntry(outer.node)) AddEntry(index, outer, steps);
  BuildSlots();
  before_ = candidate_before_;
  between_ = candidate_between_;
  behind_.assign(1, '\0');  // which no path ends with
}

void ListMembers::BuildSlots() {
  slots_.assign(std::bit_ceil(members_.size() + 1), 0);
  std::uint32_t number = 0;
  for (Member& member : members_) {
    std::uint32_t& slot = slots_[member.hash & (slots_.size() - 1)];
    member.next = slot;
    slot = ++number;
  }
}

void ListMembers::AddEntry(SnapshotIndex& index, const ResolvedNode& outer,
                           const std::vector<const lysc_node*>& steps) {
  ResolvedNode inner = {outer.schema, outer.node, true, false};
  for (const lysc_node* step : steps) inner = ChildOf(index, inner, step, false);
  for (const lyd_node* entry = inner.node; entry != nullptr; entry = NextEntry(entry)) {
    members_.push_back({KeyOf(entry), KeyOf(outer.node), HashText(KeyOf(entry)), 0});
  }
}

}  // namespace confd
