// The bounded file of fault records.

#ifndef PLATFORM_VXMIDWARE_SRC_FAULT_FILE_H_
#define PLATFORM_VXMIDWARE_SRC_FAULT_FILE_H_

#include <cstddef>
#include <filesystem>
#include <string>

namespace vxmw {

inline constexpr std::size_t kMaxFaultFileSize = 1024 * 1024;  // bytes

// Appends `line` and a newline to `directory`/faults.jsonl. When the file would exceed `max_size`
// bytes it first becomes faults.jsonl.1, in place of an earlier one. Any number of processes may
// append at once; they take turns by a lock on `directory`/faults.lock. A line that cannot be
// written whole is not written at all. Makes the directory if it is missing. Throws std::exception.
void AppendFault(const std::filesystem::path& directory, const std::string& line,
                 std::size_t max_size = kMaxFaultFileSize);

}  // namespace vxmw

#endif  // PLATFORM_VXMIDWARE_SRC_FAULT_FILE_H_
