#include "tests/fakes/fake_vxmw.h"

#include "tests/fakes/journal.h"

namespace fakes {

Vxmw& Vxmw::Get() {
  static Vxmw* const middleware = new Vxmw;
  return *middleware;
}

// Neither is ever dereferenced.
vxmw_t* Vxmw::Handle() {
  static int handle = 0;
  return reinterpret_cast<vxmw_t*>(&handle);
}

zlog_category_t* Vxmw::Category() {
  static int category = 0;
  return reinterpret_cast<zlog_category_t*>(&category);
}

}  // namespace fakes

using fakes::Journal;
using fakes::Vxmw;

extern "C" {

vxmw_t* vxmw_init(const char* application) {
  Journal::Get().Add(std::string("vxmw_init ") + application);
  return Vxmw::Get().init_result;
}

int vxmw_loop_while_timeout(vxmw_t* mw, bool* go_on, int timeout) {
  Vxmw& middleware = Vxmw::Get();
  Journal::Get().Add("vxmw_loop_while_timeout " + std::to_string(timeout));
  middleware.loop_handle = mw;
  middleware.loop_flag = *go_on;
  middleware.loop_timeout = timeout;
  if (middleware.on_loop) middleware.on_loop();
  return middleware.loop_result;
}

void vxmw_finish(vxmw_t** mw) {
  Journal::Get().Add("vxmw_finish");
  Vxmw::Get().finished.push_back(*mw);
  *mw = nullptr;
}

void vxmw_print_backtrace(void) { Journal::Get().Add("vxmw_print_backtrace"); }

void vxmw_gen_fault(int severity, const char* function, const char* source_path, int line,
                    const char* text) {
  Journal::Get().Add("fault " + std::to_string(severity) + " " + function + " " + source_path +
                     ":" + std::to_string(line) + " '" + text + "'");
  Vxmw::Get().faults.push_back({severity, function, source_path, line, text});
}

int vxmw_trace_init(vxmw_t* mw, const char* application) {
  Vxmw& middleware = Vxmw::Get();
  Journal::Get().Add(std::string("vxmw_trace_init ") + application);
  middleware.trace_handle = mw;
  if (middleware.on_trace_init) middleware.on_trace_init();
  return middleware.trace_init_result;
}

zlog_category_t* vxmw_trace_register_category(const char* name) {
  Journal::Get().Add(std::string("vxmw_trace_register_category ") + name);
  return Vxmw::Get().category_result;
}

}  // extern "C"
