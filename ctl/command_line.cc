#include "ctl/command_line.h"

#include <getopt.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace relayctl {
namespace {

constexpr int kUsageError = 2;

constexpr char kUsage[] =
    "usage: dhcp-relayctl [--runtime-dir DIR] show [TOPIC] [--json]\n"
    "       dhcp-relayctl [--runtime-dir DIR] clear counters\n"
    "       dhcp-relayctl [--runtime-dir DIR] status [--json] [--wait SECONDS]\n"
    "\n"
    "show             print the DHCP manager's relay table, as configured\n"
    "show instances   print VRF, number of servers and number of interfaces of each instance\n"
    "show interfaces  print state, kernel interface and settings in force of each interface\n"
    "show counters    print the outcomes of the messages received, by interface\n"
    "show servers     print requests sent to each server and replies received from it\n"
    "clear counters   set all counters to zero; for root and the manager's user only\n"
    "status           print whether the daemon is connected and the table is in sync with it,\n"
    "                 which VRFs have no socket or lose replies to another process, and whether\n"
    "                 commits are saved; the exit status is 1 while it is not in sync, else 4\n"
    "                 because of sockets, else 3 while commits are not saved\n"
    "\n"
    "  --json             print one line of JSON\n"
    "  --wait SECONDS     wait for the table to be in sync, at most SECONDS\n"
    "  --runtime-dir DIR  directory of the manager's sockets; default $DHCP_MANAGER_DIR, else\n"
    "                     /run/dhcp-manager; the saver's is $DHCP_RELAY_SAVED_DIR, else\n"
    "                     /run/dhcp-relay-saved\n"
    "  --help, --version\n";

constexpr std::array<option, 6> kOptions{{{"runtime-dir", required_argument, nullptr, 'r'},
                                          {"json", no_argument, nullptr, 'j'},
                                          {"wait", required_argument, nullptr, 'w'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {"version", no_argument, nullptr, 'v'},
                                          {nullptr, 0, nullptr, 0}}};

[[noreturn]] void PrintAndEnd(const char* text) {
  std::fputs(text, stdout);
  std::exit(EXIT_SUCCESS);
}

int ParseSeconds(std::string_view text) {
  int value = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || rest != end || value < 0) {
    Refuse("'" + std::string(text) + "' is not a number of seconds");
  }
  return value;
}

void SetOption(int option, CommandLine& line) {
  switch (option) {
    case 'r':
      line.directory = optarg;
      break;
    case 'j':
      line.json = true;
      break;
    case 'w':
      line.wait = ParseSeconds(optarg);
      break;
    case 'h':
      PrintAndEnd(kUsage);
    case 'v':
      PrintAndEnd("dhcp-relayctl " VX_VERSION "\n");
    default:  // getopt_long has told why
      std::exit(kUsageError);
  }
}

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
  CommandLine line;
  int option = 0;
  while ((option = getopt_long(argc, argv, "", kOptions.data(), nullptr)) != -1) {
    SetOption(option, line);
  }
  if (optind == argc) Refuse("missing command");
  line.command = argv[optind];
  if (optind + 1 < argc) line.topic = argv[optind + 1];
  if (optind + 2 < argc) Refuse(std::string("unexpected argument '") + argv[optind + 2] + "'");
  return line;
}

void Refuse(const std::string& reason) {
  std::fprintf(stderr, "dhcp-relayctl: %s\nTry 'dhcp-relayctl --help'.\n", reason.c_str());
  std::exit(kUsageError);
}

}  // namespace relayctl
