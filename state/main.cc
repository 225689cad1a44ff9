#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "log.h"
#include "publisher.h"
#include "vxmw/vxmw.h"
#include "wire.h"

namespace {

constexpr char kApplication[] = "dhcp-relay-stated";
constexpr int kUsageError = 2;

constexpr char kUsage[] =
    "usage: dhcp-relay-stated\n"
    "\n"
    "Serves what the DHCP manager is doing as operational data of the datastore, in the module\n"
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
  std::exit(kUsageError);
}

int Serve(vxmw_t* mw) {
  const state::Publisher publisher(mw, dhcp_relay::wire::RuntimeDirectory());
  bool go_on = true;
  return vxmw_loop_while_timeout(mw, &go_on, 0) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  ReadCommandLine(argc, argv);
  vxmw_t* mw = vxmw_init(kApplication);
  if (mw == nullptr) {
    vxmw_gen_fault(1, __func__, __FILE__, __LINE__, "cannot attach to the middleware");
    return EXIT_FAILURE;
  }
  int status = EXIT_FAILURE;
  try {
    vxmw_trace_init(mw, kApplication);
    dhcp_manager::StartLog(kApplication);
    status = Serve(mw);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dhcp-relay-stated: %s\n", error.what());
    vxmw_gen_fault(0, __func__, __FILE__, __LINE__, error.what());
  }
  vxmw_finish(&mw);
  return status;
}
