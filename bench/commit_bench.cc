// A user of the datastore that commits on demand, from one session that stays open. It reads
// commands from standard input, a line each, and answers each with two numbers for every commit, on
// a line: the nanoseconds until it returned, and those until the manager held all of it, which is
// the same while no daemon is connected.
//
//   leaf COUNT        COUNT commits, each of one option of instance relay-1
//   vlan COUNT        COUNT commits, each of the VLAN of one interface, 1
//   vlans COUNT LAST  COUNT commits, each of the VLANs of the interfaces from 1 to LAST
//   vlan-of COUNT N   COUNT commits, each of the VLAN of interface N
//   import COUNT LAST COUNT commits, each of the instances and interfaces from 1 to LAST, none of
//                     which is there; they are removed between two commits

#include <sysrepo.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "base/runtime_directory.h"
#include "protocol/control/client.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kStatusInterval{1};

constexpr int kVlans = 4094;

void Check(int code, const char* what) {
  if (code != SR_ERR_OK) throw std::runtime_error(std::string(what) + ": " + sr_strerror(code));
}

class Committer {
 public:
  Committer() {
    sr_conn_ctx_t* connection = nullptr;
    Check(sr_connect(SR_CONN_CACHE_RUNNING, &connection), "sr_connect");
    connection_.reset(connection);
    Check(sr_session_start(connection, SR_DS_RUNNING, &session_), "sr_session_start");
  }

  void SetOption(bool on) {
    Set("/vx-config:config/vx-dhcp-relay:dhcp/relay[name='relay-1']/relay-information/check",
        on ? "true" : "false");
  }

  void SetVlan(int interface, int vlan) {
    Set("/vx-config:config/vx-interface:interface/l3[name='" + std::to_string(interface) +
            "']/lower-layer-if/vlan",
        std::to_string(vlan));
  }

  void AddInstance(int number) {
    const std::string name = std::to_string(number);
    const std::string l3 = "/vx-config:config/vx-interface:interface/l3[name='" + name + "']";
    const std::string relay =
        "/vx-config:config/vx-dhcp-relay:dhcp/relay[name='relay-" + name + "']";
    SetVlan(number, 1 + (number - 1) % kVlans);
    Set(l3 + "/ipv4/address/ip",
        "172." + std::to_string(16 + number / 256) + "." + std::to_string(number % 256) + ".1/24");
    Set(relay + "/interface[name='l3-" + name + "']", "");
    Set(relay + "/server/ipv4[address='10.0.0.1']", "");
  }

  void RemoveAll() {
    Check(sr_delete_item(session_, "/vx-config:config/vx-dhcp-relay:dhcp/relay", 0), "delete");
    Check(sr_delete_item(session_, "/vx-config:config/vx-interface:interface/l3", 0), "delete");
  }

  void Commit() { Check(sr_apply_changes(session_, 0), "sr_apply_changes"); }

 private:
  struct Disconnect {
    void operator()(sr_conn_ctx_t* connection) const { sr_disconnect(connection); }
  };

  void Set(const std::string& path, const std::string& value) {
    const char* text = value.empty() ? nullptr : value.c_str();
    Check(sr_set_item_str(session_, path.c_str(), text, nullptr, 0), path.c_str());
  }

  std::unique_ptr<sr_conn_ctx_t, Disconnect> connection_;
  sr_session_ctx_t* session_ = nullptr;
};

// Returns once the manager holds everything that the daemon was told; at once without a daemon.
void WaitForManager() {
  while (true) {
    // A connection each time: the manager answers it after what the daemon has sent before.
    const auto status = dhcp_relay::control::Connection(base::RuntimeDirectory()).Status();
    if (status.in_sync() || !status.connected()) return;
    std::this_thread::sleep_for(kStatusInterval);
  }
}

// No two commits in a row set the same.
class Bench {
 public:
  void Run(const std::string& line) {
    std::istringstream words(line);
    std::string what;
    int count = 0;
    words >> what >> count;
    int last = 1;
    if (what != "leaf" && what != "vlan") words >> last;
    if (!words) throw std::runtime_error("cannot understand '" + line + "'");
    for (int i = 0; i < count; ++i, ++turn_) {
      Edit(what, last);
      Measure();
      if (what == "import") Clear();
    }
    std::puts("");
    std::fflush(stdout);
  }

 private:
  void Edit(const std::string& what, int last) {
    if (what == "leaf") return committer_.SetOption(turn_ % 2 == 0);
    if (what == "vlan-of") return SetVlan(last);
    if (what != "vlan" && what != "vlans" && what != "import") {
      throw std::runtime_error("no such command: " + what);
    }
    for (int i = 1; i <= last; ++i) {
      if (what == "import") {
        committer_.AddInstance(i);
      } else {
        SetVlan(i);
      }
    }
  }

  void Measure() {
    const auto start = steady_clock::now();
    const auto elapsed = [start] {
      return static_cast<long long>(std::chrono::nanoseconds(steady_clock::now() - start).count());
    };
    committer_.Commit();
    const long long returned = elapsed();
    WaitForManager();
    std::printf("%lld %lld ", returned, elapsed());
  }

  void SetVlan(int interface) { committer_.SetVlan(interface, 1 + (interface + turn_) % kVlans); }

  void Clear() {
    committer_.RemoveAll();
    committer_.Commit();
    WaitForManager();
  }

  Committer committer_;
  int turn_ = 0;
};

}  // namespace

int main() {
  try {
    Bench bench;
    for (std::string line; std::getline(std::cin, line);) bench.Run(line);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "commit_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
