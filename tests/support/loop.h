// Running the middleware's loop in a test until something holds.

#ifndef TESTS_SUPPORT_LOOP_H_
#define TESTS_SUPPORT_LOOP_H_

#include <chrono>
#include <functional>
#include <future>
#include <memory>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

namespace tests {

inline constexpr std::chrono::seconds kLimit{30};

// False when the condition does not hold within the limit. What the loop throws goes through.
inline bool RunUntil(vxmw_t* mw, const std::function<bool()>& condition) {
  using std::chrono::milliseconds;
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  bool go_on = true;
  bool holds = false;
  std::unique_ptr<vxmw::TimerSource> poll;
  poll = std::make_unique<vxmw::TimerSource>(mw, [&] {
    holds = condition();
    go_on = !holds && std::chrono::steady_clock::now() < deadline;
    if (go_on) poll->Arm(milliseconds(5));
  });
  poll->Arm(milliseconds(0));
  vxmw_loop_while_timeout(mw, &go_on, 20);
  return holds;
}

// Runs `task` on a thread of its own, because a commit waits until the loop has served it. False
// when it does not end within the limit. What it throws goes through.
inline bool ServeWhile(vxmw_t* mw, const std::function<void()>& task) {
  auto done = std::async(std::launch::async, task);
  const bool ended = RunUntil(
      mw, [&done] { return done.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
  done.get();
  return ended;
}

}  // namespace tests

#endif  // TESTS_SUPPORT_LOOP_H_
