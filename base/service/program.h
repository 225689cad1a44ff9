// The common frame of main() of a process that serves from the middleware's loop.

#ifndef BASE_SERVICE_PROGRAM_H_
#define BASE_SERVICE_PROGRAM_H_

#include <functional>

#include <vxmw/vxmw.h>

namespace base {

// Exit status of a program whose command line is not understood.
inline constexpr int kUsageError = 2;

// Attaches to the middleware under `name`, starts the log and calls `serve`, which ends with
// RunLoop and whose result is the exit status. A std::exception becomes a line on standard error, a
// fault and exit status 1.
int RunProgram(const char* name, const std::function<int(vxmw_t*)>& serve);

// Runs the loop until it ends, and returns the exit status.
int RunLoop(vxmw_t* mw);

}  // namespace base

#endif  // BASE_SERVICE_PROGRAM_H_
