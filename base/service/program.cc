#include "base/service/program.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "base/service/log.h"
#include "base/severity.h"

namespace base {

int RunProgram(const char* name, const std::function<int(vxmw_t*)>& serve) {
  vxmw_t* mw = vxmw_init(name);
  if (mw == nullptr) {
    vxmw_gen_fault(kFaultCritical, __func__, __FILE__, __LINE__, "cannot attach to the middleware");
    return EXIT_FAILURE;
  }
  int status = EXIT_FAILURE;
  try {
    vxmw_trace_init(mw, name);
    StartLog(name);
    status = serve(mw);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", name, error.what());
    vxmw_gen_fault(kFaultError, __func__, __FILE__, __LINE__, error.what());
  }
  vxmw_finish(&mw);
  return status;
}

int RunLoop(vxmw_t* mw) {
  bool go_on = true;
  return vxmw_loop_while_timeout(mw, &go_on, 0) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace base
