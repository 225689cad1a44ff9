#include <systemd/sd-daemon.h>

#include <chrono>
#include <cstdint>

#include <vxmw/event.h>

#include "platform/vxmidware/src/middleware.h"

namespace vxmw {
namespace {

using std::chrono::steady_clock;

// Long against the system calls that it takes.
constexpr std::chrono::milliseconds kInterval{10};

constexpr int kFeedingsPerPeriod = 4;

// They are blocked, and pending until the loop takes them.
bool IsStopPending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGINT) == 1;
}

void FeedWatchdog(vxmw_t* mw, steady_clock::time_point now) {
  std::uint64_t period = 0;  // microseconds
  if (!mw->ready_sent || now < mw->next_feeding || sd_watchdog_enabled(0, &period) <= 0) return;
  mw->next_feeding = now + std::chrono::microseconds(period / kFeedingsPerPeriod);
  sd_notify(0, "WATCHDOG=1");
}

}  // namespace

bool KeepAlive(vxmw_t* mw) {
  const auto now = steady_clock::now();
  if (now < mw->next_keep_alive && !mw->stop_pending) return true;
  mw->next_keep_alive = now + kInterval;
  FeedWatchdog(mw, now);
  mw->stop_pending = IsStopPending();
  return !mw->stop_pending;
}

}  // namespace vxmw
