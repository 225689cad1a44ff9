#include "platform/vxmidware/src/standard_error.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

namespace vxmw {
namespace {

// A pipe that is writable takes PIPE_BUF bytes without a wait. The descriptor cannot be made
// non-blocking for that, since other processes share its description.
constexpr std::size_t kMaxPart = PIPE_BUF;

bool IsWritable() {
  pollfd standard_error{STDERR_FILENO, POLLOUT, 0};
  return poll(&standard_error, 1, 0) == 1 && (standard_error.revents & POLLOUT) != 0;
}

}  // namespace

void WriteToStandardError(std::string_view text) noexcept {
  while (!text.empty() && IsWritable()) {
    const std::string_view part = text.substr(0, kMaxPart);
    const ssize_t written = write(STDERR_FILENO, part.data(), part.size());
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace vxmw
