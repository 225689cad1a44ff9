// The grammar of paths.

#ifndef PLATFORM_CONFD_SRC_PATH_H_
#define PLATFORM_CONFD_SRC_PATH_H_

#include <cstddef>
#include <string_view>

namespace confd {

// One node of a path: [prefix:]name, then {keys} or [position] when it names an entry of a list.
// The texts live as long as the path.
struct PathStep {
  enum class Selector { kNone, kKeys, kPosition };

  std::string_view prefix;  // module name or module prefix; empty when not given
  std::string_view name;
  Selector selector = Selector::kNone;
  std::string_view keys;  // what the braces hold, as it is; for several keys, blanks between them
  std::size_t position = 0;  // of the entry; 0 is the first
};

// Takes a path apart, node by node.
class PathParser {
 public:
  explicit PathParser(std::string_view path) : rest_(path) {}

  // Starts behind `read` bytes, which end a node.
  void Skip(std::size_t read) { rest_.remove_prefix(read); }

  bool AtEnd() const { return rest_.empty(); }

  // Bytes of the path that were read.
  std::size_t position(std::string_view path) const { return path.size() - rest_.size(); }

  // Reads the next node. Returns null, or what is wrong with it.
  // REQUIRES: !AtEnd().
  const char* Next(PathStep* step);

  // Reads what follows a node's name, for a parser that was made to skip up to there.
  const char* TakeSelector(PathStep* step);

 private:
  const char* TakeName(PathStep* step);
  const char* TakeKeys(PathStep* step);
  const char* TakePosition(PathStep* step);

  std::string_view rest_;
};

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_PATH_H_
