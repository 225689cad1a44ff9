// A dump of the whole configuration, from the request to the last call received, by the real daemon
// in a process of its own, in turn with one read of the same data by sr_get_data:
//   dump_bench DAEMON INSTANCES ROUNDS
// Prints the medians of both, in nanoseconds, and the daemon's peak memory in KiB: three numbers on
// a line.

#include <sys/socket.h>
#include <sys/wait.h>
#include <sysrepo.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "protocol/wire/wire.h"
#include "tests/support/private_repository.h"

namespace {

namespace wire = dhcp_relay::wire;
using nlohmann::json;
using std::chrono::steady_clock;

// An instance with two servers, one layer-3 interface and one override.
json Instance(int number) {
  const std::string name = std::to_string(number);
  const std::string subnet = std::to_string(number / 250) + "." + std::to_string(number % 250);
  return {{"name", "relay-" + name},
          {"vrf", "red"},
          {"relay-information", {{"option", true}, {"policy", "replace"}}},
          {"interface", json::array({{{"name", "l3-" + name}}})},
          {"if-option",
           json::array({{{"name", "l3-" + name}, {"relay-information", {{"check", true}}}}})},
          {"server",
           {{"ipv4",
             json::array({{{"address", "10.1." + subnet}}, {{"address", "10.2." + subnet}}})}}}};
}

json L3Interface(int number) {
  const std::string address =
      "172." + std::to_string(16 + number / 250) + "." + std::to_string(number % 250) + ".1/24";
  return {{"name", std::to_string(number)},
          {"lower-layer-if", {{"vlan", number}}},
          {"ipv4", {{"address", {{"ip", address}}}}}};
}

std::string Configuration(int instances) {
  json relays = json::array();
  json interfaces = json::array();
  for (int i = 1; i <= instances; ++i) {
    relays.push_back(Instance(i));
    interfaces.push_back(L3Interface(i));
  }
  return json{
      {"metacli-internal:internal",
       {{"vrf-config", {{"stringTOindex", json::array({{{"name", "red"}, {"vrf-idx", 7}}})}}}}},
      {"vx-config:config",
       {{"vx-interface:interface", {{"l3", interfaces}}},
        {"vx-dhcp-relay:dhcp", {{"relay", relays}}}}}}
      .dump();
}

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

// Reads the whole running datastore, as a session of the daemon does, and gives it back.
class Reader {
 public:
  Reader() {
    Require(sr_connect(SR_CONN_CACHE_RUNNING, &connection_) == SR_ERR_OK, "sr_connect");
    Require(sr_session_start(connection_, SR_DS_RUNNING, &session_) == SR_ERR_OK,
            "sr_session_start");
  }
  ~Reader() { sr_disconnect(connection_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  void Read() {
    sr_data_t* data = nullptr;
    Require(sr_get_data(session_, "/*", 0, 0, 0, &data) == SR_ERR_OK && data != nullptr,
            "sr_get_data");
    sr_release_data(data);
  }

 private:
  sr_conn_ctx_t* connection_ = nullptr;
  sr_session_ctx_t* session_ = nullptr;
};

// The DHCP manager's end of a daemon that was started for it.
class Manager {
 public:
  Manager(const char* daemon, const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    const sockaddr_un address = base::SocketAddress(directory / wire::kSocketName);
    listener_ = base::Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    Require(
        bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
            listen(listener_.get(), 1) == 0,
        "listen");
    Start(daemon);
    client_ = base::Descriptor(accept(listener_.get(), nullptr, nullptr));
    Require(static_cast<bool>(client_), "accept");
    Require(Receive().has_hello(), "no greeting");
  }
  ~Manager() {
    kill(daemon_, SIGTERM);
    waitpid(daemon_, nullptr, 0);
  }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  // The number of calls.
  int Dump() {
    wire::ManagerMessage request;
    request.mutable_dump_request()->set_id(++dump_);
    Require(base::SendPacket(client_.get(), request.SerializeAsString()) == base::SendResult::kSent,
            "send");
    int calls = 0;
    while (true) {
      const wire::ClientMessage& message = Receive();
      calls += message.calls().calls_size();
      if (message.has_dump_complete()) return calls;
    }
  }

  long PeakMemory() const {
    std::ifstream status("/proc/" + std::to_string(daemon_) + "/status");
    for (std::string word; status >> word;) {
      long value = 0;
      if (word == "VmHWM:" && status >> value) return value;
    }
    return 0;
  }

 private:
  void Start(const char* daemon) {
    daemon_ = fork();
    if (daemon_ != 0) return;
    execl(daemon, daemon, nullptr);
    _exit(127);
  }

  const wire::ClientMessage& Receive() {
    buffer_.resize(base::kMaxPacketSize);
    const ssize_t size = recv(client_.get(), buffer_.data(), buffer_.size(), 0);
    Require(size > 0, "the daemon is gone");
    Require(message_.ParseFromArray(buffer_.data(), static_cast<int>(size)), "no message");
    return message_;
  }

  base::Descriptor listener_;
  base::Descriptor client_;
  pid_t daemon_ = -1;
  std::uint32_t dump_ = 0;
  std::vector<char> buffer_;
  wire::ClientMessage message_;
};

template <typename Action>
long long Nanoseconds(Action action) {
  const auto start = steady_clock::now();
  action();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(steady_clock::now() - start).count();
}

long long Median(std::vector<long long> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

void Measure(const char* daemon, int instances, int rounds) {
  const tests::PrivateRepository repository;
  repository.InstallModelsWithConfiguration(Configuration(instances));
  Manager manager(daemon, repository.directory() / "run");
  Reader reader;
  reader.Read();
  Require(manager.Dump() == instances * 14, "a dump of another size than expected");
  std::vector<long long> reads;
  std::vector<long long> dumps;
  for (int i = 0; i < rounds; ++i) {
    reads.push_back(Nanoseconds([&] { reader.Read(); }));
    dumps.push_back(Nanoseconds([&] { manager.Dump(); }));
  }
  std::printf("%lld %lld %ld\n", Median(reads), Median(dumps), manager.PeakMemory());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: dump_bench DAEMON INSTANCES ROUNDS\n", stderr);
    return 2;
  }
  try {
    Measure(argv[1], std::stoi(argv[2]), std::stoi(argv[3]));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dump_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
