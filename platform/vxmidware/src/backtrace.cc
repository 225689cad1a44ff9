#include <execinfo.h>
#include <unistd.h>

#include <array>

#include <vxmw/vxmw.h>

namespace {

constexpr int kMaxFrames = 64;

using Frames = std::array<void*, kMaxFrames>;

int Fill(Frames& frames) { return backtrace(frames.data(), kMaxFrames); }

// The first call loads the unwinder, which allocates: done now, so that no later call does.
[[maybe_unused]] const int kPreloaded = [] {
  Frames frames{};
  return Fill(frames);
}();

}  // namespace

void vxmw_print_backtrace(void) {
  Frames frames{};
  const int count = Fill(frames);
  backtrace_symbols_fd(frames.data(), count, STDERR_FILENO);
}
