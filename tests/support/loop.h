// The middleware of a test, and running its loop until something holds.

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

// The middleware of the test's process.
class Middleware {
 public:
  explicit Middleware(const char* application) : mw_(vxmw_init(application)) {}
  ~Middleware() { vxmw_finish(&mw_); }
  Middleware(const Middleware&) = delete;
  Middleware& operator=(const Middleware&) = delete;

  vxmw_t* get() const { return mw_; }

 private:
  vxmw_t* mw_;
};

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

inline void RunFor(vxmw_t* mw, std::chrono::milliseconds span) {
  const auto end = std::chrono::steady_clock::now() + span;
  RunUntil(mw, [end] { return std::chrono::steady_clock::now() >= end; });
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
