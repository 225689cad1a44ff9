// What paths named last: reads of one list entry come one after the other, and so do reads of the
// entries of one list.

#ifndef PLATFORM_CONFD_SRC_RECENT_ENTRIES_H_
#define PLATFORM_CONFD_SRC_RECENT_ENTRIES_H_

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

struct lyd_node;
struct lysc_node;

namespace confd {

class RecentEntries {
 public:
  struct Entry {
    std::string path;  // up to the brace behind its keys
    const lyd_node* node = nullptr;
  };

  // The entry that `path` begins with; null when it is not among the latest.
  const Entry* Find(std::string_view path) const {
    for (const Entry& entry : entries_) {
      if (entry.node != nullptr && BeginsWith(path, entry.path)) return &entry;
    }
    return nullptr;
  }

  void Add(std::string_view path, const lyd_node* node) {
    Entry& oldest = entries_[next_++ % entries_.size()];
    oldest.path = path;
    oldest.node = node;
  }

 private:
  // Entries of one list differ near their ends first.
  static bool BeginsWith(std::string_view path, std::string_view entry) {
    const std::size_t size = entry.size();
    return path.size() >= size && path[size - 1] == entry[size - 1] &&
           path[size - 2] == entry[size - 2] && path.starts_with(entry);
  }

  std::array<Entry, 4> entries_;
  std::size_t next_ = 0;
};

// The list that a path named last for one of its entries.
struct RecentList {
  std::string path;  // up to the brace before the keys; empty when there was none yet
  const lysc_node* schema = nullptr;
  const lyd_node* first = nullptr;  // entry
  std::size_t keys = 0;             // of an entry

  bool IsIn(std::string_view other) const {
    return other.size() > path.size() && other[path.size()] == '{' && !path.empty() &&
           other.starts_with(path);
  }
};

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_RECENT_ENTRIES_H_
