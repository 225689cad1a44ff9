#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vxmw/vxmw.h>

#include "base/runtime_directory.h"
#include "base/service/program.h"
#include "state/publisher.h"

namespace {

constexpr char kApplication[] = "dhcp-relay-stated";

constexpr char kUsage[] =
    "usage: dhcp-relay-stated\n"
    "\n"
    "Serves the state of the DHCP relay as operational data of the datastore, in the module\n"
    "vx-dhcp-relay-state. The manager's sockets are in $DHCP_MANAGER_DIR, else /run/dhcp-manager.\n"
    "\n"
    "  --help, --version\n"
    "\n"
    "SIGTERM and SIGINT end it, SIGHUP reads the log configuration again.\n";

// Ends the process unless there are no arguments.
void ReadCommandLine(int argc, char** argv) {
  if (argc == 1) return;
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::fputs(kUsage, stdout);
    std::exit(EXIT_SUCCESS);
  }
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::puts("dhcp-relay-stated " VX_VERSION);
    std::exit(EXIT_SUCCESS);
  }
  std::fputs(kUsage, stderr);
  std::exit(base::kUsageError);
}

int Serve(vxmw_t* mw) {
  const state::Publisher publisher(mw, base::RuntimeDirectory());
  return base::RunLoop(mw);
}

}  // namespace

int main(int argc, char** argv) {
  ReadCommandLine(argc, argv);
  return base::RunProgram(kApplication, Serve);
}
