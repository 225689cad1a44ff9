#include "datastore/file_id.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace datastore {

std::optional<FileId> Identify(const std::string& path) {
  struct statx status = {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &status) != 0) return std::nullopt;
  return FileId{.device = std::uint64_t{status.stx_dev_major} << 32U | status.stx_dev_minor,
                .inode = status.stx_ino,
                .born_seconds = status.stx_btime.tv_sec,
                .born_nanoseconds = status.stx_btime.tv_nsec};
}

}  // namespace datastore
