// The list entries that paths named last: reads of one entry come one after the other.

#ifndef CONFD_SRC_RECENT_ENTRIES_H_
#define CONFD_SRC_RECENT_ENTRIES_H_

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

struct lyd_node;

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
      if (entry.node != nullptr && path.starts_with(entry.path)) return &entry;
    }
    return nullptr;
  }

  void Add(std::string_view path, const lyd_node* node) {
    Entry& oldest = entries_[next_++ % entries_.size()];
    oldest.path = path;
    oldest.node = node;
  }

 private:
  std::array<Entry, 4> entries_;
  std::size_t next_ = 0;
};

}  // namespace confd

#endif  // CONFD_SRC_RECENT_ENTRIES_H_
