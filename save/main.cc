#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <vxmw/vxmw.h>

#include "base/service/program.h"
#include "protocol/saving/save_status.h"
#include "save/connected.h"
#include "save/service.h"

namespace {

constexpr char kApplication[] = "dhcp-relay-saved";

constexpr char kUsage[] =
    "usage: dhcp-relay-saved [--once | --recover]\n"
    "\n"
    "Saves every commit: keeps the datastore's startup data in step with its running data. Tells\n"
    "dhcp-relayctl how that goes, through a file in $DHCP_RELAY_SAVED_DIR, else\n"
    "/run/dhcp-relay-saved.\n"
    "\n"
    "  --once     save what is not saved, and end\n"
    "  --recover  restore what was saved but not yet brought to the startup data, and end; to be\n"
    "             called before any other program uses the datastore\n"
    "  --help, --version\n"
    "\n"
    "SIGTERM and SIGINT end it when all is saved, SIGHUP reads the log configuration again.\n";

using dhcp_relay::saving::StatusFile;

int Serve(vxmw_t* mw) {
  StatusFile status(dhcp_relay::saving::RuntimeDirectory());
  save::Service service(mw, status);
  const int result = base::RunLoop(mw);
  return service.Finish() ? result : EXIT_FAILURE;
}

// No other saver works meanwhile.
template <void (*kTask)()>
int Do(vxmw_t* /*mw*/) {
  const StatusFile status(dhcp_relay::saving::RuntimeDirectory());
  kTask();
  return EXIT_SUCCESS;
}

int Print(const char* text) {
  std::fputs(text, stdout);
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view option = argc > 1 ? argv[1] : "";
  if (argc == 1) return base::RunProgram(kApplication, Serve);
  if (argc == 2 && option == "--once") return base::RunProgram(kApplication, Do<save::SaveOnce>);
  if (argc == 2 && option == "--recover") return base::RunProgram(kApplication, Do<save::Recover>);
  if (argc == 2 && option == "--help") return Print(kUsage);
  if (argc == 2 && option == "--version") return Print("dhcp-relay-saved " VX_VERSION "\n");
  std::fputs(kUsage, stderr);
  return base::kUsageError;
}
