// Which entries of a list have a certain entry in a list of their own.
//
// A client that looks for the one entry that lists X asks /outer{K}/inner{X} of every K. Once a few
// of these paths came in a row, all inner entries are indexed, and such a path costs two
// comparisons of texts.

#ifndef PLATFORM_CONFD_SRC_LIST_MEMBERS_H_
#define PLATFORM_CONFD_SRC_LIST_MEMBERS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/confd/src/resolved_node.h"

namespace confd {

// Refers to the data of one snapshot, which must not change.
class ListMembers {
 public:
  // Whether the node exists; nothing when the path is not of the indexed shape.
  std::optional<bool> Find(std::string_view path) {
    if (!path.starts_with(before_) || before_.empty()) return std::nullopt;
    if (!path.ends_with(behind_) || path.size() < before_.size() + behind_.size()) {
      return FindOther(path);
    }
    const std::string_view key =
        path.substr(before_.size(), path.size() - before_.size() - behind_.size());
    if (key.find('}') != std::string_view::npos) return FindOther(path);
    return IsHolder(key);
  }

  // To be told of every path that Find had nothing on and that turned out to be known to the
  // schema.
  void Add(SnapshotIndex& index, std::string_view path);

 private:
  struct Member {
    std::string_view inner;  // keys
    std::string_view outer;
    std::uint32_t hash;  // of the inner one
    std::uint32_t next;  // member in the same slot, plus one; 0 for none
  };

  bool IsHolder(std::string_view key) const;
  std::optional<bool> FindOther(std::string_view path);
  void Build(SnapshotIndex& index);
  void BuildSlots();
  void SelectHolders(std::string_view inner);
  void AddEntry(SnapshotIndex& index, const ResolvedNode& outer,
                const std::vector<const lysc_node*>& steps);

  std::string candidate_before_;  // the shape of the latest path
  std::string candidate_between_;
  int in_a_row_ = 0;

  std::string before_;   // up to the outer key; empty without an index
  std::string between_;  // from there to the inner key
  std::string behind_;   // from there to the end, of the path that was asked for last
  std::vector<Member> members_;
  std::vector<std::uint32_t> slots_;       // members plus one, by hash of the inner key
  std::vector<std::string_view> holders_;  // outer keys of the inner key in behind_, in order
};

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_LIST_MEMBERS_H_
