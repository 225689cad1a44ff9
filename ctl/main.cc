#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "base/packet_socket.h"
#include "base/runtime_directory.h"
#include "ctl/render_state.h"
#include "ctl/render_table.h"
#include "protocol/control/client.h"

namespace {

using dhcp_relay::control::Connection;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr int kUsageError = 2;
constexpr milliseconds kStatusInterval{20};

constexpr char kUsage[] =
    "usage: dhcp-relayctl [--runtime-dir DIR] show [TOPIC] [--json]\n"
    "       dhcp-relayctl [--runtime-dir DIR] clear counters\n"
    "       dhcp-relayctl [--runtime-dir DIR] status [--json] [--wait SECONDS]\n"
    "\n"
    "show             the DHCP manager's relay table, as it was configured\n"
    "show instances   what each instance relays with\n"
    "show interfaces  where each interface's packets pass, or why they do not, and its settings\n"
    "show counters    what became of the messages of each interface\n"
    "show servers     what was sent to each server, and its replies\n"
    "clear counters   starts counting from zero; for root and the manager's user\n"
    "status           whether the daemon is connected and the table is in sync with it; fails "
    "when\n"
    "                 not. With --wait, waits so long for it.\n"
    "\n"
    "  --runtime-dir DIR  where the manager's sockets are; default $DHCP_MANAGER_DIR, else\n"
    "                     /run/dhcp-manager\n"
    "  --help, --version\n";

struct CommandLine {
  std::filesystem::path directory = base::RuntimeDirectory();
  std::string command;
  std::string topic;  // of the command; empty: none
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
  if (optind == argc) Refuse("what shall it do?");
  line.command = argv[optind];
  if (optind + 1 < argc) line.topic = argv[optind + 1];
  if (optind + 2 < argc) Refuse(std::string("what is '") + argv[optind + 2] + "'?");
  return line;
}

void Print(const CommandLine& line, const std::string& json, const std::string& text) {
  std::fputs((line.json ? json + "\n" : text).c_str(), stdout);
}

int ShowTable(const CommandLine& line) {
  const auto table = Connection(line.directory).Table();
  Print(line, relayctl::TableAsJson(table), relayctl::TableAsText(table));
  return EXIT_SUCCESS;
}

struct Topic {
  const char* name;
  std::string (*json)(const dhcp_relay::control::RelayState& state);
  std::string (*text)(const dhcp_relay::control::RelayState& state);
};

constexpr std::array kTopics{
    Topic{"instances", relayctl::InstancesAsJson, relayctl::InstancesAsText},
    Topic{"interfaces", relayctl::InterfacesAsJson, relayctl::InterfacesAsText},
    Topic{"counters", relayctl::CountersAsJson, relayctl::CountersAsText},
    Topic{"servers", relayctl::ServersAsJson, relayctl::ServersAsText}};

int Show(const CommandLine& line) {
  if (line.topic.empty()) return ShowTable(line);
  const auto* const topic = std::ranges::find_if(
      kTopics, [&line](const Topic& candidate) { return line.topic == candidate.name; });
  if (topic == kTopics.end()) Refuse("there is no '" + line.topic + "' to show");
  const auto state = Connection(line.directory).State();
  Print(line, topic->json(state), topic->text(state));
  return EXIT_SUCCESS;
}

int Clear(const CommandLine& line) {
  if (line.topic != "counters") Refuse("only counters can be cleared");
  Connection(line.directory).ClearCounters();
  return EXIT_SUCCESS;
}

// A manager that does not answer yet is waited for, too.
dhcp_relay::control::Status WaitForSync(const CommandLine& line) {
  const auto deadline = steady_clock::now() + seconds(line.wait);
  while (true) {
    const bool last_try = steady_clock::now() >= deadline;
    try {
      auto status = Connection(line.directory).Status();
      if (status.in_sync() || last_try) return status;
    } catch (const base::ConnectionError&) {
      if (last_try) throw;
    }
    std::this_thread::sleep_for(kStatusInterval);
  }
}

int Status(const CommandLine& line) {
  const auto status = WaitForSync(line);
  Print(line, relayctl::StatusAsJson(status), relayctl::StatusAsText(status));
  return status.in_sync() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int Run(const CommandLine& line) {
  if (line.command == "show") return Show(line);
  if (line.command == "clear") return Clear(line);
  if (line.command == "status") {
    if (!line.topic.empty()) Refuse("what is '" + line.topic + "'?");
    return Status(line);
  }
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
