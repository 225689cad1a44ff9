// Double of the platform middleware.

#ifndef TESTS_FAKES_FAKE_VXMW_H_
#define TESTS_FAKES_FAKE_VXMW_H_

#include <functional>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

namespace fakes {

struct Fault {
  int severity = 0;
  std::string function;
  std::string source_path;
  int line = 0;
  std::string text;
};

class Vxmw {
 public:
  static Vxmw& Get();
  void Reset() { *this = Vxmw(); }

  // A handle that a test may hand to the code under test.
  static vxmw_t* Handle();
  static zlog_category_t* Category();

  // What the calls answer; a hook runs inside its call and may throw.
  vxmw_t* init_result = Handle();
  int loop_result = 0;
  int trace_init_result = 1;
  zlog_category_t* category_result = Category();
  std::function<void()> on_loop;
  std::function<void()> on_trace_init;

  // What was asked.
  std::vector<Fault> faults;
  vxmw_t* loop_handle = nullptr;
  bool loop_flag = false;
  int loop_timeout = -1;
  vxmw_t* trace_handle = nullptr;
  std::vector<vxmw_t*> finished;
};

}  // namespace fakes

#endif  // TESTS_FAKES_FAKE_VXMW_H_
