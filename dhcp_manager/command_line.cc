#include "dhcp_manager/command_line.h"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "base/runtime_directory.h"
#include "base/service/program.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {
namespace {

constexpr char kUsage[] =
    "usage: dhcp-manager [--runtime-dir DIR] [--journal FILE] [--user USER | --keep-rights]\n"
    "                    [--daemon-user USER] [--operators GROUP]\n"
    "                    [--flood-guard RATE[:BURST]] [--discover-guard RATE[:BURST]]\n"
    "                    [--client-guard RATE[:BURST]] [--servers-only]\n"
    "                    [--drop-foreign-giaddr] [--vrf-device TABLE=DEVICE]...\n"
    "\n"
    "Relays DHCP as dhcp-relay-app configures it.\n"
    "\n"
    "  --runtime-dir DIR  where its sockets are; default $DHCP_MANAGER_DIR, else\n"
    "                     /run/dhcp-manager\n"
    "  --journal FILE     append every call received to FILE, one line each\n"
    "  --user USER        run as USER\n"
    "  --keep-rights      keep the rights it was started with; without this option it gives up\n"
    "                     all but those that relaying needs, system calls included\n"
    "  --daemon-user USER let the daemon run as USER, too, besides root and the manager's user\n"
    "  --operators GROUP  let members of GROUP use dhcp-relayctl; default dhcp-operators, if\n"
    "                     there is such a group\n"
    "  --flood-guard RATE[:BURST]\n"
    "                     take at most RATE requests a second from each interface, and BURST at\n"
    "                     once (default: RATE)\n"
    "  --discover-guard RATE[:BURST]\n"
    "                     likewise, of the DHCPDISCOVERs of each interface\n"
    "  --client-guard RATE[:BURST]\n"
    "                     likewise, of the requests of each client of an interface, by its\n"
    "                     hardware address\n"
    "  --servers-only     take replies of an instance's configured servers only\n"
    "  --drop-foreign-giaddr\n"
    "                     drop requests of other relays on interfaces that are not trusted\n"
    "  --vrf-device TABLE=DEVICE\n"
    "                     let DEVICE stand for the VRF of routing table TABLE, where the\n"
    "                     kernel has no VRF devices\n"
    "  --help, --version\n"
    "\n"
    "SIGTERM and SIGINT end it, SIGHUP reads the log configuration again.\n";

[[noreturn]] void RefuseCommandLine() {
  std::fputs("Try 'dhcp-manager --help'.\n", stderr);
  std::exit(base::kUsageError);
}

[[noreturn]] void Refuse(const char* what, std::string_view text) {
  std::fprintf(stderr, "dhcp-manager: invalid %s '%.*s'\n", what, static_cast<int>(text.size()),
               text.data());
  RefuseCommandLine();
}

std::uint32_t ParseNumber(const char* what, std::string_view text, std::uint32_t minimum) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < minimum) {
    Refuse(what, text);
  }
  return number;
}

base::RateLimit ParseRateLimit(std::string_view text) {
  const std::size_t colon = std::min(text.find(':'), text.size());
  const std::uint32_t rate = ParseNumber("rate of requests", text.substr(0, colon), 1);
  const bool has_burst = colon < text.size();
  const std::uint32_t burst =
      has_burst ? ParseNumber("burst of requests", text.substr(colon + 1), 1) : rate;
  return {.rate = static_cast<double>(rate), .burst = static_cast<double>(burst)};
}

void AddVrfDevice(std::string_view text, VrfDevices& devices) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos || equals + 1 == text.size()) {
    Refuse("VRF device (TABLE=DEVICE)", text);
  }
  devices[ParseNumber("routing table", text.substr(0, equals), 1)] = text.substr(equals + 1);
}

constexpr std::array<option, 15> kOptions{{{"runtime-dir", required_argument, nullptr, 'r'},
                                           {"journal", required_argument, nullptr, 'j'},
                                           {"user", required_argument, nullptr, 'u'},
                                           {"daemon-user", required_argument, nullptr, 'a'},
                                           {"operators", required_argument, nullptr, 'o'},
                                           {"keep-rights", no_argument, nullptr, 'k'},
                                           {"flood-guard", required_argument, nullptr, 'f'},
                                           {"discover-guard", required_argument, nullptr, 'i'},
                                           {"client-guard", required_argument, nullptr, 'c'},
                                           {"servers-only", no_argument, nullptr, 's'},
                                           {"drop-foreign-giaddr", no_argument, nullptr, 'g'},
                                           {"vrf-device", required_argument, nullptr, 'd'},
                                           {"help", no_argument, nullptr, 'h'},
                                           {"version", no_argument, nullptr, 'v'},
                                           {nullptr, 0, nullptr, 0}}};

[[noreturn]] void Print(const char* text) {
  std::fputs(text, stdout);
  std::exit(EXIT_SUCCESS);
}

// `chosen` is an option's letter in kOptions, or that of an invalid one.
void Apply(int chosen, const char* argument, CommandLine& line) {
  switch (chosen) {
    case 'r':
      line.runtime_directory = argument;
      break;
    case 'j':
      line.journal = argument;
      break;
    case 'u':
      line.user = argument;
      break;
    case 'k':
      line.keep_rights = true;
      break;
    case 's':
      line.trust.servers_only = true;
      break;
    case 'g':
      line.trust.drop_foreign_giaddr = true;
      break;
    case 'a':
      line.daemon_user = argument;
      break;
    case 'o':
      line.operators = argument;
      break;
    case 'f':
      line.flood_limits.interface = ParseRateLimit(argument);
      break;
    case 'i':
      line.flood_limits.discover = ParseRateLimit(argument);
      break;
    case 'c':
      line.flood_limits.client = ParseRateLimit(argument);
      break;
    case 'd':
      AddVrfDevice(argument, line.vrf_devices);
      break;
    case 'h':
      Print(kUsage);
    case 'v':
      Print("dhcp-manager " VX_VERSION "\n");
    default:
      RefuseCommandLine();
  }
}

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
  CommandLine line;
  line.runtime_directory = base::RuntimeDirectory();
  int chosen = 0;
  while ((chosen = getopt_long(argc, argv, "", kOptions.data(), nullptr)) != -1) {
    Apply(chosen, optarg, line);
  }
  if (optind < argc) {
    std::fprintf(stderr, "dhcp-manager: unexpected argument '%s'\n", argv[optind]);
    RefuseCommandLine();
  }
  if (line.keep_rights && !line.user.empty()) {
    std::fputs("dhcp-manager: --user gives up the rights that --keep-rights keeps\n", stderr);
    RefuseCommandLine();
  }
  return line;
}

}  // namespace dhcp_manager
