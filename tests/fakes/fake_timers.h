// Double of the middleware's timers: a test sees the delays that are set, and decides when they are
// over.

#ifndef TESTS_FAKES_FAKE_TIMERS_H_
#define TESTS_FAKES_FAKE_TIMERS_H_

#include <chrono>
#include <functional>
#include <map>
#include <vector>

namespace fakes {

class Timers {
 public:
  static Timers& Get();
  void Reset() { *this = Timers(); }

  // Every delay that was set, in its order.
  std::vector<std::chrono::microseconds> delays;

  // What is called at the end of each delay that runs, by its timer.
  std::map<const void*, std::function<void()>> running;

  // Ends every delay that runs now. False when there is none.
  bool Fire();
};

}  // namespace fakes

#endif  // TESTS_FAKES_FAKE_TIMERS_H_
