// Random commits, some of them while nobody serves the loop, some by committers that are killed:
// once it is quiet, what a handler was told adds up to the configuration.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <string>

#include <confd_cdb.h>
#include <confd_lib.h>
#include <vxconfd/vxconfd.h>

#include "tests/integration/platform/vxconfd/committer.h"
#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

using std::chrono::milliseconds;
using Table = std::map<std::string, int>;  // VLANs by interface

constexpr int kInterfaces = 6;

std::string Entry(const std::string& name) {
  return "/vx-config:config/vx-interface:interface/l3[name='" + name + "']";
}

// Builds a table of nothing but the reports.
class TableHandler : public vxconfd::ConfigHandler {
 public:
  TableHandler() {
    points_.push_back(
        {3, 0, "/config/interface/l3", 0, [this](auto* kp, auto op, auto* /*before*/, auto* after) {
           Take(*kp, op, after);
           return ITER_RECURSE;
         }});
  }

  void LoadInitialConfig() override {}
  void ApplyInitialConfig() override {}
  void StartCommit() override {}
  void ApplyCommitConfig() override {}

  Table table;

 private:
  void Take(const confd_hkeypath_t& kp, confd_iter_op op, const confd_value_t* after) {
    const auto& key = kp.v[kp.len - 4][0];
    const std::string name = reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&key));
    const bool is_entry = kp.len == 4;
    if (is_entry && op == MOP_DELETED) table.erase(name);
    if (is_entry && op == MOP_CREATED) table[name] = 0;
    if (kp.len == 6) table[name] = op == MOP_VALUE_SET ? CONFD_GET_INT32(after) : 0;
  }
};

class RandomDeliveryTest : public ::testing::Test {
 protected:
  RandomDeliveryTest() {
    repository_.InstallModels();
    adapter_.AddConfigHandler(&handler_);
    adapter_.Init(0);
    committer_ = std::make_unique<tests::Committer>();
  }
  ~RandomDeliveryTest() override { committer_.reset(); }

  int Number(int from, int to) { return std::uniform_int_distribution<>(from, to)(random_); }

  // An edit at random of one interface.
  void Edit(tests::Committer& committer) {
    const std::string name = std::to_string(Number(1, kInterfaces));
    switch (Number(0, 3)) {
      case 0:
        return committer.Delete(Entry(name));
      case 1:
        return committer.Delete(Entry(name) + "/lower-layer-if/vlan");
      default:
        return committer.Set(Entry(name) + "/lower-layer-if/vlan", std::to_string(Number(1, 4094)));
    }
  }

  void CommitServed() {
    EXPECT_TRUE(tests::ServeWhile(mw_.get(), [this] {
      Edit(*committer_);
      committer_->Commit();
    }));
  }

  // The process stands still for longer than the committer waits.
  void CommitUnserved() {
    Edit(*committer_);
    committer_->Commit(milliseconds(Number(1, 30)));
  }

  // Another process commits; it is killed at some point of its commit.
  void CommitAndKill() {
    const std::string name = std::to_string(Number(1, kInterfaces));
    const std::string file = (repository_.directory() / "killed.json").string();
    const std::string command =
        R"(echo '{ "vx-config:config": { "vx-interface:interface": { "l3": [ { "name": ")" + name +
        R"(", "lower-layer-if": { "vlan": )" + std::to_string(Number(1, 4094)) + " } } ] } } }' >" +
        file + "; exec sysrepocfg --edit=" + file + " -d running -f json";
    const pid_t child = fork();
    if (child == 0) {
      execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      _exit(127);
    }
    const auto end = std::chrono::steady_clock::now() + milliseconds(Number(5, 60));
    tests::RunUntil(mw_.get(), [end] { return std::chrono::steady_clock::now() >= end; });
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  void Step() {
    const int kind = Number(0, 9);
    if (kind < 5) return CommitServed();
    if (kind < 8) return CommitUnserved();
    CommitAndKill();
  }

  Table Read() {
    Table table;
    for (int i = 1; i <= kInterfaces; ++i) {
      const std::string name = std::to_string(i);
      if (committer_->Read(Entry(name) + "/name").empty()) continue;
      const std::string vlan = committer_->Read(Entry(name) + "/lower-layer-if/vlan");
      table[name] = vlan.empty() ? 0 : std::stoi(vlan);
    }
    return table;
  }

  tests::PrivateRepository repository_;
  const tests::Middleware mw_{"random_delivery_test"};
  TableHandler handler_;
  vxconfd::AppInterface adapter_{mw_.get(), nullptr, "random_delivery_test", ELEM_CONFD_PHASE_2};
  std::unique_ptr<tests::Committer> committer_;
  const unsigned seed_ = std::random_device()();
  std::mt19937 random_{seed_};
};

TEST_F(RandomDeliveryTest, WhatWasToldAddsUpToTheConfiguration) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  for (int round = 0; round < 40 && !HasFailure(); ++round) {
    for (int step = Number(1, 12); step > 0; --step) Step();
    const Table expected = Read();
    EXPECT_TRUE(tests::RunUntil(mw_.get(), [&] { return handler_.table == expected; }))
        << "in round " << round;
    EXPECT_EQ(handler_.table, expected);
  }
}

}  // namespace
