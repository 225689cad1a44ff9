// Tries something until it works, from the loop, with a growing delay and one log line per reason.

#ifndef BASE_SERVICE_RETRY_H_
#define BASE_SERVICE_RETRY_H_

#include <chrono>
#include <functional>
#include <string>

#include <vxmw/event.h>

namespace base {

struct RetryDelays {
  std::chrono::milliseconds first;    // before the first retry; each later one waits twice as long
  std::chrono::milliseconds longest;  // up to this
  // Reasons are not reported while the delay is shorter than this: what starts at the same time is
  // nothing to tell of.
  std::chrono::milliseconds patience{0};
};

class Retry {
 public:
  using Attempt = std::function<void()>;
  using Report = std::function<void(const std::string& reason)>;

  // `attempt` is called from the loop; it ends with Failed, or with Succeeded. `report` is called
  // once for each reason in a row of failures.
  Retry(vxmw_t* mw, RetryDelays delays, Report report, Attempt attempt);

  // The first attempt, from the loop.
  void Start();

  // Tries again after the delay.
  void Failed(const std::string& reason);

  // The next failure begins anew, with the first delay, and is reported.
  void Succeeded();

 private:
  const RetryDelays delays_;
  const Report report_;
  std::chrono::milliseconds next_;
  std::string reported_;
  vxmw::TimerSource timer_;
};

}  // namespace base

#endif  // BASE_SERVICE_RETRY_H_
