// Repeats an attempt from the loop until it succeeds, with a growing delay.

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
  // No failure is reported while the delay is shorter than this: a peer that starts at the same
  // time is not missing.
  std::chrono::milliseconds patience{0};
};

class Retry {
 public:
  using Attempt = std::function<void()>;
  using Report = std::function<void(const std::string& reason)>;

  // `attempt` is called from the loop; it ends with Failed or Succeeded. `report` is called for a
  // failure whose reason differs from the one reported last.
  Retry(vxmw_t* mw, RetryDelays delays, Report report, Attempt attempt);

  // The first attempt, from the loop.
  void Start();

  // Tries again after the delay.
  void Failed(const std::string& reason);

  // Forgets earlier failures: the next one waits the first delay and counts as a new reason.
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
