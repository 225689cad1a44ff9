// Tells a file from others that had, or will have, its name.

#ifndef DATASTORE_FILE_ID_H_
#define DATASTORE_FILE_ID_H_

#include <cstdint>
#include <optional>
#include <string>

namespace datastore {

struct FileId {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t born_seconds = 0;  // the numbers above are used again
  std::uint32_t born_nanoseconds = 0;

  bool operator==(const FileId&) const = default;
};

// Nothing when there is no such file.
std::optional<FileId> Identify(const std::string& path);

}  // namespace datastore

#endif  // DATASTORE_FILE_ID_H_
