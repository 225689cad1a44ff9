#include "options.h"

#include <getopt.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "wire.h"

namespace dhcp_manager {
namespace {

constexpr int kUsageError = 2;

constexpr char kUsage[] =
    "usage: dhcp-manager [--runtime-dir DIR] [--journal FILE]\n"
    "\n"
    "Keeps the relay table that dhcp-relay-app's calls make.\n"
    "\n"
    "  --runtime-dir DIR  where its sockets are; default $DHCP_MANAGER_DIR, else "
    "/run/dhcp-manager\n"
    "  --journal FILE     append every call received to FILE, one line each\n"
    "  --help, --version\n"
    "\n"
    "SIGTERM and SIGINT end it, SIGHUP reads the log configuration again.\n";

[[noreturn]] void RefuseCommandLine() {
  std::fputs("Try 'dhcp-manager --help'.\n", stderr);
  std::exit(kUsageError);
}

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
  constexpr std::array<option, 5> kOptions{{{"runtime-dir", required_argument, nullptr, 'r'},
                                            {"journal", required_argument, nullptr, 'j'},
                                            {"help", no_argument, nullptr, 'h'},
                                            {"version", no_argument, nullptr, 'v'},
                                            {nullptr, 0, nullptr, 0}}};
  CommandLine line{.runtime_directory = dhcp_relay::wire::RuntimeDirectory(), .journal = {}};
  int chosen = 0;
  while ((chosen = getopt_long(argc, argv, "", kOptions.data(), nullptr)) != -1) {
    switch (chosen) {
      case 'r':
        line.runtime_directory = optarg;
        break;
      case 'j':
        line.journal = optarg;
        break;
      case 'h':
        std::fputs(kUsage, stdout);
        std::exit(EXIT_SUCCESS);
      case 'v':
        std::puts("dhcp-manager " VX_VERSION);
        std::exit(EXIT_SUCCESS);
      default:
        RefuseCommandLine();
    }
  }
  if (optind < argc) {
    std::fprintf(stderr, "dhcp-manager: what is '%s'?\n", argv[optind]);
    RefuseCommandLine();
  }
  return line;
}

}  // namespace dhcp_manager
