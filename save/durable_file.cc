#include "save/durable_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "base/descriptor.h"
#include "base/system_error.h"

namespace save {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kMode = 0600;  // the configuration is for its owner

void Require(bool good, const char* what, const fs::path& path) {
  if (!good) base::ThrowSystemError(std::string("cannot ") + what + " " + path.string());
}

void WriteAll(int fd, const std::string& text, const fs::path& path) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(fd, text.data() + written, text.size() - written);
    if (count < 0 && errno == EINTR) continue;
    Require(count > 0, "write", path);
    written += static_cast<std::size_t>(count);
  }
}

void WriteNew(const fs::path& path, const std::string& text) {
  const base::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
  Require(static_cast<bool>(file), "open", path);
  WriteAll(file.get(), text, path);
  Require(fsync(file.get()) == 0, "sync", path);
}

}  // namespace

void WriteDurably(const fs::path& path, const std::string& text) {
  const fs::path next = path.string() + ".new";
  try {
    WriteNew(next, text);
  } catch (const std::system_error&) {
    unlink(next.c_str());  // gives back the room on a disk that is full
    throw;
  }
  Require(rename(next.c_str(), path.c_str()) == 0, "replace", path);
  Sync(path.parent_path());
}

void RemoveDurably(const fs::path& path) {
  if (unlink(path.c_str()) == 0) {
    Sync(path.parent_path());
    return;
  }
  Require(errno == ENOENT, "remove", path);
}

void RequireRoom(const fs::path& path, std::size_t bytes) {
  const base::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kMode));
  Require(static_cast<bool>(file), "open", path);
  const int error = posix_fallocate(file.get(), 0, static_cast<off_t>(bytes));
  unlink(path.c_str());
  if (error != 0) base::ThrowSystemError("no room for " + std::to_string(bytes) + " bytes", error);
}

void Sync(const fs::path& path) {
  const base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  Require(static_cast<bool>(file), "open", path);
  Require(fsync(file.get()) == 0, "sync", path);
}

}  // namespace save
