#include "fault_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vxmw {
namespace {

namespace fs = std::filesystem;

class File {
 public:
  File(const fs::path& path, int flags) : fd_(open(path.c_str(), flags | O_CLOEXEC, 0644)) {
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), path.string());
  }
  ~File() { close(fd_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_;
};

std::size_t SizeOf(const File& file) {
  struct stat status{};
  return fstat(file.fd(), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

void Write(const File& file, const std::string& text) {
  if (write(file.fd(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::system_error(errno, std::generic_category(), "write");
  }
}

}  // namespace

void AppendFault(const fs::path& directory, const std::string& line, std::size_t bound) {
  fs::create_directories(directory);
  // Held over looking at the size, renaming and writing, so that no process writes to a file that
  // has been moved on.
  const File lock(directory, O_RDONLY | O_DIRECTORY);
  if (flock(lock.fd(), LOCK_EX) != 0) {
    throw std::system_error(errno, std::generic_category(), "flock");
  }
  const fs::path file = directory / "faults.jsonl";
  constexpr int kAppend = O_WRONLY | O_APPEND | O_CREAT;
  const std::size_t size = SizeOf(File(file, kAppend));
  if (size > 0 && size + line.size() + 1 > bound) fs::rename(file, directory / "faults.jsonl.1");
  Write(File(file, kAppend), line + "\n");
}

}  // namespace vxmw
