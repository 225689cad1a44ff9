#include "platform/vxmidware/src/fault_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "base/descriptor.h"
#include "base/system_error.h"

namespace vxmw {
namespace {

namespace fs = std::filesystem;

// Each try but the first follows a rotation or removal by another process.
constexpr int kMaxTries = 16;

[[noreturn]] void Refuse(const fs::path& path, const char* why) {
  throw std::runtime_error(path.string() + ": " + why);
}

struct stat StatusOf(const base::Descriptor& file) {
  struct stat status{};
  if (fstat(file.get(), &status) != 0) base::ThrowSystemError("fstat");
  return status;
}

// A parent with the set-group-ID bit hands its group and that bit on.
void MakeDirectory(const fs::path& directory) {
  constexpr mode_t kAccess = 07777;
  constexpr mode_t kGroup = S_IRWXG;
  if (!fs::create_directories(directory)) return;
  struct stat own{};
  struct stat parent{};
  if (stat(directory.c_str(), &own) != 0 || stat((directory / "..").c_str(), &parent) != 0) return;
  if (own.st_gid != parent.st_gid) return;
  chmod(directory.c_str(), (own.st_mode & kAccess & ~kGroup) | (parent.st_mode & kGroup));
}

// Whatever the umask is. A process that is no member of the directory's group keeps its own.
bool ShareWithGroupOf(const fs::path& directory, const base::Descriptor& file) {
  constexpr mode_t kReadWrite = S_IRGRP | S_IWGRP;
  struct stat status{};
  if (stat(directory.c_str(), &status) != 0) return false;
  const bool is_given = fchown(file.get(), static_cast<uid_t>(-1), status.st_gid) == 0;
  return fchmod(file.get(),
                S_IRUSR | S_IWUSR | (is_given ? status.st_mode & kReadWrite : mode_t{0})) == 0;
}

// Under another name until the file has its group, so that no other user meets one that he may not
// write. Leaves a file alone that is there by then.
void Make(const fs::path& path) {
  std::string name = path.string() + ".XXXXXX";
  const base::Descriptor file(mkostemp(name.data(), O_CLOEXEC));
  if (!file) base::ThrowSystemError(path.string());
  const bool is_made = ShareWithGroupOf(path.parent_path(), file) &&
                       (link(name.c_str(), path.c_str()) == 0 || errno == EEXIST);
  const int error = errno;
  unlink(name.c_str());
  if (!is_made) base::ThrowSystemError(path.string(), error);
}

// Waits for nobody: neither for the reader of a FIFO nor for the holder of a lease.
base::Descriptor OpenExisting(const fs::path& path) {
  return base::Descriptor(
      open(path.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

base::Descriptor Open(const fs::path& path) {
  base::Descriptor file = OpenExisting(path);
  if (!file && errno == ENOENT) {
    Make(path);
    file = OpenExisting(path);
  }
  if (!file) base::ThrowSystemError(path.string());
  if (!S_ISREG(StatusOf(file).st_mode)) Refuse(path, "is no regular file");
  return file;
}

bool HasRoom(const base::Descriptor& file, std::size_t more, std::size_t max_size) {
  const auto size = static_cast<std::size_t>(StatusOf(file).st_size);
  return size == 0 || size + more <= max_size;
}

bool IsAt(const fs::path& path, const base::Descriptor& file) {
  struct stat named{};
  const struct stat opened = StatusOf(file);
  return lstat(path.c_str(), &named) == 0 && named.st_dev == opened.st_dev &&
         named.st_ino == opened.st_ino;
}

// True when `path` does not name the file any more. Only the holder of the file's lock renames it,
// so that a second rotation cannot follow at once and take the records of the first.
bool Rotate(const base::Descriptor& file, const fs::path& path) {
  if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) return false;
  return !IsAt(path, file) || std::rename(path.c_str(), (path.string() + ".1").c_str()) == 0;
}

// A full disk refuses the record here, before a part of it is written. Not every file system can.
void Reserve(const base::Descriptor& file, const fs::path& path, std::size_t size) {
  const off_t end = StatusOf(file).st_size;
  if (fallocate(file.get(), FALLOC_FL_KEEP_SIZE, end, static_cast<off_t>(size)) == 0) return;
  if (errno == ENOSPC || errno == EDQUOT) base::ThrowSystemError(path.string());
}

// Makes a blank line of the last `size` bytes written. They cannot be cut off: another process may
// have appended since.
void Blank(const base::Descriptor& file, std::size_t size) {
  const off_t end = lseek(file.get(), 0, SEEK_CUR);
  const std::string blanks = std::string(size - 1, ' ') + "\n";
  // Without O_APPEND, which pwrite would follow.
  if (end < static_cast<off_t>(size) || fcntl(file.get(), F_SETFL, 0) != 0) return;
  const ssize_t written = pwrite(file.get(), blanks.data(), size, end - static_cast<off_t>(size));
  static_cast<void>(written);  // they have their room already
}

// In one call, so that lines of several processes never mix.
void Write(const base::Descriptor& file, const fs::path& path, const std::string& text) {
  Reserve(file, path, text.size());
  ssize_t written = 0;
  do {
    written = write(file.get(), text.data(), text.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(text.size())) return;
  const int error = written < 0 ? errno : ENOSPC;
  if (written > 0) Blank(file, static_cast<std::size_t>(written));
  base::ThrowSystemError(path.string(), error);
}

// False when `path` was rotated, so that another file is to be opened.
bool Append(const fs::path& path, const std::string& text, std::size_t max_size) {
  const base::Descriptor file = Open(path);
  if (!HasRoom(file, text.size(), max_size)) {
    if (Rotate(file, path)) return false;
    if (!HasRoom(file, text.size(), kMaxFaultFileGrowth * max_size)) {
      Refuse(path, "is full and cannot be rotated");
    }
  }
  Write(file, path, text);
  return StatusOf(file).st_nlink > 0;  // two rotations since it was opened remove it
}

}  // namespace

void AppendFault(const fs::path& directory, const std::string& line, std::size_t max_size) {
  MakeDirectory(directory);
  const fs::path path = directory / "faults.jsonl";
  for (int tries = 0; tries < kMaxTries; ++tries) {
    if (Append(path, line + "\n", max_size)) return;
  }
  Refuse(path, "is replaced all the time");
}

}  // namespace vxmw
