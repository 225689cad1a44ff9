#include "platform/vxmidware/src/fault_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "base/descriptor.h"
#include "base/system_error.h"

namespace vxmw {
namespace {

namespace fs = std::filesystem;

base::Descriptor Open(const fs::path& path, int flags, mode_t mode) {
  base::Descriptor file(open(path.c_str(), flags | O_CLOEXEC, mode));
  if (!file) base::ThrowSystemError(path.string());
  return file;
}

std::size_t SizeOf(const base::Descriptor& file) {
  struct stat status{};
  return fstat(file.get(), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

// Writes the record whole or not at all: a partial one would corrupt the next.
void Write(const base::Descriptor& file, const std::string& text) {
  const auto before = static_cast<off_t>(SizeOf(file));
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t written = write(file.get(), rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      const int error = errno;
      if (ftruncate(file.get(), before) != 0) base::ThrowSystemError("remove a partial record");
      base::ThrowSystemError("write", error);
    }
  }
}

void Lock(const base::Descriptor& file) {
  int result = 0;
  do {
    result = flock(file.get(), LOCK_EX);
  } while (result != 0 && errno == EINTR);
  if (result != 0) base::ThrowSystemError("lock");
}

bool IsFull(const fs::path& file, std::size_t more, std::size_t max_size) {
  std::error_code missing;
  const auto size = fs::file_size(file, missing);
  return !missing && size > 0 && size + more > max_size;
}

}  // namespace

void AppendFault(const fs::path& directory, const std::string& line, std::size_t max_size) {
  fs::create_directories(directory);
  // Held while the size is read, the file renamed and the record written, so that no process writes
  // to a renamed file. Only the owner may open the lock: whoever can could hold it for ever.
  const base::Descriptor lock = Open(directory / "faults.lock", O_RDWR | O_CREAT, 0600);
  Lock(lock);
  const fs::path file = directory / "faults.jsonl";
  if (IsFull(file, line.size() + 1, max_size)) fs::rename(file, directory / "faults.jsonl.1");
  Write(Open(file, O_WRONLY | O_APPEND | O_CREAT, 0644), line + "\n");
}

}  // namespace vxmw
