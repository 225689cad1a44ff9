#include <getopt.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "connection.h"
#include "render.h"

namespace {

using relayctl::Connection;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr int kUsageError = 2;
constexpr milliseconds kStatusInterval{20};

constexpr char kUsage[] =
    "usage: dhcp-relayctl [--runtime-dir DIR] show [--json]\n"
    "       dhcp-relayctl [--runtime-dir DIR] status [--json] [--wait SECONDS]\n"
    "\n"
    "show     the DHCP manager's relay table\n"
    "status   whether the daemon is connected and the table is in sync with it; fails when not.\n"
    "         With --wait, waits so long for it.\n"
    "\n"
    "  --runtime-dir DIR  where the manager's sockets are; default $DHCP_MANAGER_DIR, else\n"
    "                     /run/dhcp-manager\n"
    "  --help, --version\n";

struct CommandLine {
  std::filesystem::path directory = dhcp_relay::wire::RuntimeDirectory();
  std::string command;
  bool json = false;
  int wait = 0;  // seconds
};

[[noreturn]] void Refuse(const std::string& why) {
  std::fprintf(stderr, "dhcp-relayctl: %s\nTry 'dhcp-relayctl --help'.\n", why.c_str());
  std::exit(kUsageError);
}

int ParseSeconds(const char* text) {
  int value = 0;
  const char* const end = text + std::strlen(text);
  const auto [rest, error] = std::from_chars(text, end, value);
  if (error != std::errc() || rest != end || value < 0) {
    Refuse(std::string("'") + text + "' is not a number of seconds");
  }
  return value;
}

CommandLine Parse(int argc, char** argv) {
  constexpr std::array<option, 6> kOptions{{{"runtime-dir", required_argument, nullptr, 'r'},
                                            {"json", no_argument, nullptr, 'j'},
                                            {"wait", required_argument, nullptr, 'w'},
                                            {"help", no_argument, nullptr, 'h'},
                                            {"version", no_argument, nullptr, 'v'},
                                            {nullptr, 0, nullptr, 0}}};
  CommandLine line;
  int chosen = 0;
  while ((chosen = getopt_long(argc, argv, "", kOptions.data(), nullptr)) != -1) {
    switch (chosen) {
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
        std::fputs(kUsage, stdout);
        std::exit(EXIT_SUCCESS);
      case 'v':
        std::puts("dhcp-relayctl " VX_VERSION);
        std::exit(EXIT_SUCCESS);
      default:
        std::exit(kUsageError);
    }
  }
  if (optind + 1 != argc) Refuse(optind == argc ? "what shall it do?" : "one command at a time");
  line.command = argv[optind];
  return line;
}

int Show(const CommandLine& line) {
  const auto table = Connection(line.directory).Table();
  std::fputs(
      (line.json ? relayctl::TableAsJson(table) + "\n" : relayctl::TableAsText(table)).c_str(),
      stdout);
  return EXIT_SUCCESS;
}

// A manager that does not answer yet is waited for, too.
dhcp_manager::control::Status WaitForSync(const CommandLine& line) {
  const auto deadline = steady_clock::now() + seconds(line.wait);
  while (true) {
    const bool last_try = steady_clock::now() >= deadline;
    try {
      auto status = Connection(line.directory).Status();
      if (status.in_sync() || last_try) return status;
    } catch (const dhcp_relay::wire::WireError&) {
      if (last_try) throw;
    }
    std::this_thread::sleep_for(kStatusInterval);
  }
}

int Status(const CommandLine& line) {
  const auto status = WaitForSync(line);
  std::fputs(
      (line.json ? relayctl::StatusAsJson(status) + "\n" : relayctl::StatusAsText(status)).c_str(),
      stdout);
  return status.in_sync() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int Run(const CommandLine& line) {
  if (line.command == "show") return Show(line);
  if (line.command == "status") return Status(line);
  Refuse("unknown command '" + line.command + "'");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(Parse(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dhcp-relayctl: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
