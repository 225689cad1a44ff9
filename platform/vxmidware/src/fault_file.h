// The bounded file of fault records.

#ifndef PLATFORM_VXMIDWARE_SRC_FAULT_FILE_H_
#define PLATFORM_VXMIDWARE_SRC_FAULT_FILE_H_

#include <cstddef>
#include <filesystem>
#include <string>

namespace vxmw {

inline constexpr std::size_t kMaxFaultFileSize = 1024 * 1024;  // bytes

// How many times its maximum size the file may become while it cannot be rotated, because a process
// was stopped in the middle of that or has no right to.
inline constexpr std::size_t kMaxFaultFileGrowth = 8;

// Appends `line` and a newline to `directory`/faults.jsonl. When the file would exceed `max_size`
// bytes it first becomes faults.jsonl.1, in place of an earlier one.
//
// Any number of processes may append at once, under different users too, and none waits for
// another: a line is one write, which needs no lock; a process that does not get the lock for the
// rotation leaves it to a later one. No line is lost when others rotate meanwhile. A line that
// finds no room leaves no part of it; at worst a blank line stands in its place.
//
// A file that is made takes the directory's group, which may read or write the file if it may read
// or write the directory; a missing directory is made with the access of its parent's group. Only a
// regular file is written to, and no symbolic link is followed to it. Throws std::exception.
void AppendFault(const std::filesystem::path& directory, const std::string& line,
                 std::size_t max_size = kMaxFaultFileSize);

}  // namespace vxmw

#endif  // PLATFORM_VXMIDWARE_SRC_FAULT_FILE_H_
