// The printf formats of paths.

#ifndef PLATFORM_CONFD_SRC_FORMAT_H_
#define PLATFORM_CONFD_SRC_FORMAT_H_

#include <array>
#include <cstdarg>
#include <cstddef>
#include <string_view>

namespace confd {

inline constexpr std::size_t kMaxPathLength = 4096;  // bytes

// Room for one path, meant for the stack.
class PathBuffer {
 public:
  PathBuffer() = default;  // leaves the bytes as they are: nothing reads behind size_

  // False when `text` does not fit any more.
  bool Append(std::string_view text);
  std::string_view text() const { return {data_.data(), size_}; }

 private:
  std::array<char, kMaxPathLength> data_;
  std::size_t size_ = 0;
};

// Expands `fmt`, in which %s, %d, %i, %u, %x and %% are understood, and sets `*path` to the result,
// which lives as long as `buffer` and `fmt`. False, with the error set, for any other conversion, a
// null argument of %s, and a path longer than kMaxPathLength. Reads a copy of
// `args`, which stay as they are.
bool FormatPath(const char* fmt, va_list args, PathBuffer& buffer, std::string_view* path);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_FORMAT_H_
