#include "base/service/retry.h"

#include <algorithm>
#include <utility>

namespace base {

Retry::Retry(vxmw_t* mw, RetryDelays delays, Report report, Attempt attempt)
    : delays_(delays),
      report_(std::move(report)),
      next_(delays.first),
      timer_(mw, std::move(attempt)) {}

void Retry::Start() { timer_.Arm(std::chrono::milliseconds(0)); }

void Retry::Failed(const std::string& reason) {
  if (next_ >= delays_.patience && reason != reported_) {
    report_(reason);
    reported_ = reason;
  }
  timer_.Arm(next_);
  next_ = std::min(2 * next_, delays_.longest);
}

void Retry::Succeeded() {
  timer_.Disarm();
  next_ = delays_.first;
  reported_.clear();
}

}  // namespace base
