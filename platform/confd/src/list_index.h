// Entries of one list of the data.

#ifndef PLATFORM_CONFD_SRC_LIST_INDEX_H_
#define PLATFORM_CONFD_SRC_LIST_INDEX_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

struct lyd_node;

namespace confd {

// True when the keys of `entry`, with a blank between two of them, are `keys`.
bool HasKeys(const lyd_node* entry, std::string_view keys);

// Look-up by position and by keys in constant time. Refers to the data, which must not change.
class ListIndex {
 public:
  // `first` is the list's first entry.
  explicit ListIndex(const lyd_node* first);

  std::size_t size() const { return entries_.size(); }
  const lyd_node* At(std::size_t position) const;  // null past the end
  const lyd_node* Find(std::string_view keys);     // null when there is none

 private:
  void BuildSlots();

  std::vector<const lyd_node*> entries_;
  // Hash table with open addressing: positions in entries_ plus one, 0 for a free slot. Made by the
  // first look-up by keys, since many lists are only counted and walked.
  std::vector<std::uint32_t> slots_;
};

// The lists of one copy of the data, each indexed once it is worth it: small ones never, so that
// thousands of lists of two entries cost nothing.
class ListIndexes {
 public:
  // All take the list's first entry, null when it has none.
  std::size_t Count(const lyd_node* first);
  const lyd_node* At(const lyd_node* first, std::size_t position);
  const lyd_node* Find(const lyd_node* first, std::string_view keys);

 private:
  ListIndex& IndexOf(const lyd_node* first);

  std::unordered_map<const lyd_node*, ListIndex> indexes_;
};

// The entry behind `entry`, null when that was the last one.
const lyd_node* NextEntry(const lyd_node* entry);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_LIST_INDEX_H_
