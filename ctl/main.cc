#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <thread>

#include "base/packet_socket.h"
#include "ctl/command_line.h"
#include "ctl/render_state.h"
#include "ctl/render_status.h"
#include "ctl/render_table.h"
#include "ctl/socket_owner.h"
#include "protocol/control/client.h"
#include "protocol/saving/save_status.h"

namespace {

using dhcp_relay::control::Connection;
using relayctl::CommandLine;
using relayctl::Refuse;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kStatusInterval{20};

// Exit status while the relay is in sync but commits are not saved, or packets do not pass.
constexpr int kNotSaved = 3;
constexpr int kSocketFault = 4;

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
  if (topic == kTopics.end()) Refuse("unknown topic '" + line.topic + "'");
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
    const bool is_last_try = steady_clock::now() >= deadline;
    try {
      auto status = Connection(line.directory).Status();
      if (status.in_sync() || is_last_try) return status;
    } catch (const dhcp_relay::control::AccessError&) {
      throw;
    } catch (const base::ConnectionError&) {
      if (is_last_try) throw;
    }
    std::this_thread::sleep_for(kStatusInterval);
  }
}

// The manager is not asked whether commits are saved: that is to be seen also while it is away.
int Status(const CommandLine& line) {
  if (!line.topic.empty()) Refuse("unexpected argument '" + line.topic + "'");
  std::optional<dhcp_relay::control::Status> status;
  std::exception_ptr error;
  try {
    status = WaitForSync(line);
  } catch (const base::ConnectionError&) {
    error = std::current_exception();
  }
  const auto commits = dhcp_relay::saving::ReadSaveStatus(dhcp_relay::saving::RuntimeDirectory());
  const auto owner = [](std::uint32_t inode) { return relayctl::FindSocketOwner(inode); };
  Print(line, relayctl::StatusAsJson(status, commits, owner),
        relayctl::StatusAsText(status, commits, owner));
  if (error) std::rethrow_exception(error);
  if (!status->in_sync()) return EXIT_FAILURE;
  if (status->missing_sockets_size() + status->competing_sockets_size() != 0) return kSocketFault;
  return commits.good() ? EXIT_SUCCESS : kNotSaved;
}

int Run(const CommandLine& line) {
  if (line.command == "show") return Show(line);
  if (line.command == "clear") return Clear(line);
  if (line.command == "status") return Status(line);
  Refuse("unknown command '" + line.command + "'");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(relayctl::ParseCommandLine(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dhcp-relayctl: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
