// An adapter whose datastore goes away.

#ifndef TESTS_INTEGRATION_PLATFORM_VXCONFD_LOST_DATASTORE_H_
#define TESTS_INTEGRATION_PLATFORM_VXCONFD_LOST_DATASTORE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <confd_cdb.h>
#include <confd_lib.h>
#include <vxconfd/vxconfd.h>
#include <vxmw/vxmw.h>

#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace tests {

inline std::string Interfaces(const std::string& list) {
  return R"({ "vx-config:config": { "vx-interface:interface": { "l3": [ )" + list + " ] } } }";
}

inline std::string Interface(int name, int vlan) {
  return R"({ "name": ")" + std::to_string(name) + R"(", "lower-layer-if": { "vlan": )" +
         std::to_string(vlan) + " } }";
}

class VlanHandler : public vxconfd::ConfigHandler {
 public:
  VlanHandler() {
    points_.push_back({3, 0, "/config/interface/l3/lower-layer-if/vlan", 0,
                       [this](auto* kp, auto op, auto* /*before*/, auto* after) {
                         char path[256] = {};
                         confd_pp_kpath(path, sizeof(path), kp);
                         const int vlan = op == MOP_VALUE_SET ? CONFD_GET_INT32(after) : 0;
                         events.push_back(std::string(path).substr(21, 1) + "=" +
                                          std::to_string(vlan));
                         return ITER_RECURSE;
                       }});
    points_.push_back({3, 0, "/config/interface/l3", 0, [this](auto* kp, auto op, auto...) {
                         char path[256] = {};
                         confd_pp_kpath(path, sizeof(path), kp);
                         if (op == MOP_DELETED) {
                           events.push_back("deleted " + std::string(path).substr(21, 1));
                         }
                         return ITER_CONTINUE;
                       }});
  }

  void ConfdConnected(ELEM_CONFD_PHASE_ET /*phase*/) override { events.emplace_back("connected"); }
  void ConfdDisconnected() override { events.emplace_back("disconnected"); }
  void LoadInitialConfig() override { events.emplace_back("load"); }
  void ApplyInitialConfig() override { events.emplace_back("apply"); }
  void StartCommit() override {}
  void ApplyCommitConfig() override {}

  std::vector<std::string> events;
};

class LostDatastoreTest : public ::testing::Test {
 protected:
  void Start(const std::string& configuration) {
    repository_.InstallModelsWithConfiguration(configuration);
    Connect();
  }

  void Connect() {
    adapter_.AddConfigHandler(&handler_);
    adapter_.Init(0);
    handler_.events.clear();
  }

  void Commit(const std::string& json) {
    EXPECT_TRUE(ServeWhile(mw_.get(), [&] { repository_.Edit(json); }));
  }

  bool RunUntilHeard(const std::string& event) {
    return RunUntil(mw_.get(), [&] {
      return std::find(handler_.events.begin(), handler_.events.end(), event) !=
             handler_.events.end();
    });
  }

  // The pipes of subscriptions, and the locks by which connections are known to live.
  std::set<std::string> DatastoreFiles() const {
    std::set<std::string> names;
    for (const auto& file : std::filesystem::recursive_directory_iterator(Repository())) {
      const std::string name = file.path().filename();
      if (name.starts_with("sr_evpipe") || name.ends_with(".lock")) names.insert(file.path());
    }
    return names;
  }

  // Another process commits; it is killed while it waits until the adapter takes the commit.
  void CommitUnservedAndKill(const std::string& json) {
    const std::filesystem::path edit = repository_.directory() / "killed.json";
    std::ofstream(edit) << json;
    const pid_t child = fork();
    if (child == 0) {
      const std::string option = "--edit=" + edit.string();
      execlp("sysrepocfg", "sysrepocfg", option.c_str(), "-d", "running", "-f", "json", nullptr);
      _exit(127);
    }
    for (const std::string pipe = (Repository() / "sr_evpipe1").string(); !HasBytes(pipe);) {
      std::this_thread::yield();
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  static bool HasBytes(const std::string& pipe) {
    const int fd = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    int bytes = 0;
    const bool known = fd >= 0 && ioctl(fd, FIONREAD, &bytes) == 0;
    close(fd);
    return known && bytes > 0;
  }

  static std::string SharedMemory(const std::string& file) {
    return "/dev/shm/" + std::string(std::getenv("SYSREPO_SHM_PREFIX")) + file;
  }

  // As another file of the name.
  static void MakeEmpty(const std::string& path) {
    std::filesystem::remove(path);
    const std::ofstream made(path);
    EXPECT_TRUE(made.is_open());
  }

  std::filesystem::path Repository() const { return repository_.directory() / "sysrepo"; }

  int CountInterfaces() {
    const VxConfdCdbSession session(&adapter_, CDB_RUNNING, true);
    return cdb_num_instances(session.Socket(), "/config/interface/l3");
  }

  PrivateRepository repository_;
  const Middleware mw_{"lost_datastore_test"};
  VlanHandler handler_;
  vxconfd::AppInterface adapter_{mw_.get(), nullptr, "lost_datastore_test", ELEM_CONFD_PHASE_2};
};

}  // namespace tests

#endif  // TESTS_INTEGRATION_PLATFORM_VXCONFD_LOST_DATASTORE_H_
