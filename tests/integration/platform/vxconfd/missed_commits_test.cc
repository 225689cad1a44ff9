// Commits that the datastore did not wait for reach the handlers all the same.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <confd_cdb.h>
#include <confd_lib.h>
#include <vxconfd/vxconfd.h>

#include "tests/integration/platform/vxconfd/committer.h"
#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

constexpr milliseconds kImpatient{50};

std::string Vlan(int interface) {
  return "/vx-config:config/vx-interface:interface/l3[name='" + std::to_string(interface) +
         "']/lower-layer-if/vlan";
}

// Writes down what changes, and what a session reads of it meanwhile.
class VlanHandler : public vxconfd::ConfigHandler {
 public:
  VlanHandler() {
    points_.push_back(
        {3, 0, "/config/interface/l3/lower-layer-if/vlan", ITER_WANT_PREV,
         [this](auto* kp, auto op, auto* /*before*/, auto* after) { return Hear(kp, op, after); }});
  }

  void LoadInitialConfig() override {}
  void ApplyInitialConfig() override {}
  void StartCommit() override { ++commits; }
  void ApplyCommitConfig() override {}

  std::vector<std::string> lines;
  int commits = 0;

 private:
  confd_iter_ret Hear(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* after) {
    char path[256] = {};
    confd_pp_kpath(path, sizeof(path), kp);
    const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
    std::int32_t read = 0;
    cdb_get_int32(session.Socket(), &read, path);
    const int told = op == MOP_VALUE_SET ? CONFD_GET_INT32(after) : 0;
    lines.push_back(std::string(path).substr(21, 1) + "=" + std::to_string(told) +
                    (told == read ? "" : " but reads " + std::to_string(read)));
    return ITER_RECURSE;
  }
};

class MissedCommitsTest : public ::testing::Test {
 protected:
  MissedCommitsTest() {
    repository_.InstallModels();
    adapter_.AddConfigHandler(&handler_);
    adapter_.Init(0);
    committer_ = std::make_unique<tests::Committer>();
  }
  ~MissedCommitsTest() override {
    committer_.reset();
    while (waitpid(-1, nullptr, 0) > 0) {
    }
  }

  // Nobody serves the loop meanwhile.
  void CommitUnheard(int interface, int vlan) {
    committer_->Set(Vlan(interface), std::to_string(vlan));
    committer_->Commit(kImpatient);
  }

  void Commit(int interface, int vlan) {
    EXPECT_TRUE(tests::ServeWhile(mw_.get(), [&] {
      committer_->Set(Vlan(interface), std::to_string(vlan));
      committer_->Commit();
    }));
  }

  bool RunUntilHeard(std::size_t lines) {
    return tests::RunUntil(mw_.get(), [&] { return handler_.lines.size() >= lines; });
  }

  void RunFor(milliseconds span) { tests::RunFor(mw_.get(), span); }

  tests::PrivateRepository repository_;
  const tests::Middleware mw_{"missed_commits_test"};
  VlanHandler handler_;
  vxconfd::AppInterface adapter_{mw_.get(), nullptr, "missed_commits_test", ELEM_CONFD_PHASE_2};
  std::unique_ptr<tests::Committer> committer_;
};

TEST_F(MissedCommitsTest, CommitsMadeWhileTheProcessStoodStillAreDelivered) {
  CommitUnheard(1, 10);
  CommitUnheard(2, 20);
  EXPECT_TRUE(RunUntilHeard(2));
  EXPECT_THAT(handler_.lines, ElementsAre("1=10", "2=20"));
  EXPECT_THAT(repository_.Faults(), HasSubstr("commits were missed"));
}

TEST_F(MissedCommitsTest, TheyAreDeliveredOnce) {
  CommitUnheard(1, 10);
  EXPECT_TRUE(RunUntilHeard(1));
  RunFor(milliseconds(2500));
  EXPECT_THAT(handler_.lines, ElementsAre("1=10"));
  EXPECT_EQ(handler_.commits, 1);
}

TEST_F(MissedCommitsTest, OnlyTheEndOfSeveralChangesOfOneLeafIsDelivered) {
  CommitUnheard(1, 10);
  CommitUnheard(1, 11);
  CommitUnheard(1, 12);
  EXPECT_TRUE(RunUntilHeard(1));
  EXPECT_THAT(handler_.lines, ElementsAre("1=12"));
}

// The second commit is still waiting to be taken when the process goes on.
TEST_F(MissedCommitsTest, ACommitThatWaitsBehindAMissedOneIsDeliveredWithIt) {
  RunFor(milliseconds(500));
  CommitUnheard(1, 10);
  std::thread second([this] {
    committer_->Set(Vlan(2), "20");
    committer_->Commit();
  });
  tests::Committer reader;
  while (reader.Read(Vlan(2)).empty()) std::this_thread::yield();
  EXPECT_TRUE(RunUntilHeard(2));
  second.join();
  RunFor(milliseconds(500));
  EXPECT_THAT(handler_.lines, ElementsAre("1=10", "2=20"));
}

TEST_F(MissedCommitsTest, OrdinaryCommitsRaiseNoFault) {
  RunFor(milliseconds(500));
  for (int vlan = 1; vlan <= 3; ++vlan) {
    Commit(1, vlan);
  }
  RunFor(milliseconds(2500));
  EXPECT_THAT(handler_.lines, ElementsAre("1=1", "1=2", "1=3"));
  EXPECT_EQ(repository_.Faults(), "");
}

// Another subscriber that is served first, and never takes anything.
class FirstSubscriber {
 public:
  FirstSubscriber() {
    const auto ignore = [](auto...) -> int { return SR_ERR_OK; };
    if (sr_module_change_subscribe(committer_.session(), "vx-config", nullptr, ignore, nullptr, 100,
                                   SR_SUBSCR_NO_THREAD | SR_SUBSCR_DONE_ONLY,
                                   &subscription_) != SR_ERR_OK) {
      throw std::runtime_error("cannot subscribe");
    }
  }
  ~FirstSubscriber() { sr_unsubscribe(subscription_); }
  FirstSubscriber(const FirstSubscriber&) = delete;
  FirstSubscriber& operator=(const FirstSubscriber&) = delete;

 private:
  tests::Committer committer_;
  sr_subscription_ctx_t* subscription_ = nullptr;
};

// A process that commits, and is killed when the running datastore has the commit but the adapter
// was not told of it.
void CommitAndKill(const std::filesystem::path& directory) {
  const FirstSubscriber first;
  const std::filesystem::path edit = directory / "killed.json";
  std::ofstream(edit) << R"({ "vx-config:config": { "vx-interface:interface": { "l3": [
      { "name": "1", "lower-layer-if": { "vlan": 10 } } ] } } })";
  const pid_t child = fork();
  if (child == 0) {
    const std::string option = "--edit=" + edit.string();
    execlp("sysrepocfg", "sysrepocfg", option.c_str(), "-d", "running", "-f", "json", nullptr);
    _exit(127);
  }
  tests::Committer reader;
  while (reader.Read(Vlan(1)).empty()) std::this_thread::yield();
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(MissedCommitsTest, ACommitWhoseCommitterWasKilledBeforeItToldIsDelivered) {
  RunFor(milliseconds(500));
  CommitAndKill(repository_.directory());
  EXPECT_TRUE(RunUntilHeard(1));
  EXPECT_THAT(handler_.lines, ElementsAre("1=10"));
  EXPECT_THAT(repository_.Faults(), HasSubstr("commits were missed; 1 changes"));
}

TEST_F(MissedCommitsTest, ACommitThatFollowsDoesNotHideOneThatWasNotTold) {
  RunFor(milliseconds(500));
  CommitAndKill(repository_.directory());
  Commit(2, 20);
  EXPECT_TRUE(RunUntilHeard(2));
  EXPECT_THAT(handler_.lines, UnorderedElementsAre("1=10", "2=20"));
}

}  // namespace
