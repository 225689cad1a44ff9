// Commits for which the queue has no room are delivered all the same, together.

#include "platform/vxconfd/src/commit_tracker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vxmw/vxmw.h>

#include "tests/integration/platform/vxconfd/committer.h"
#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;

void Commit(int interface, int vlan) {
  tests::Committer committer;
  committer.Set("/vx-config:config/vx-interface:interface/l3[name='" + std::to_string(interface) +
                    "']/lower-layer-if/vlan",
                std::to_string(vlan));
  committer.Commit();
}

// Every VLAN in a difference, with a blank between two.
std::string Vlans(const lyd_node* difference) {
  std::string vlans;
  const lyd_node* node = nullptr;
  LYD_TREE_DFS_BEGIN(difference, node) {
    if (std::string(LYD_NAME(node)) == "vlan") {
      vlans += (vlans.empty() ? "" : " ") + std::string(lyd_get_value(node));
    }
    LYD_TREE_DFS_END(difference, node);
  }
  return vlans;
}

class CommitTrackerTest : public ::testing::Test {
 protected:
  CommitTrackerTest() {
    repository_.InstallModels();
    tracker_ = std::make_unique<vxconfd::CommitTracker>(
        mw_, log_,
        vxconfd::TrackerCalls{.deliver =
                                  [this](const lyd_node* difference) {
                                    delivered_.push_back(Vlans(difference));
                                    if (meanwhile_) std::exchange(meanwhile_, nullptr)();
                                    return true;
                                  },
                              .waiting = [this](bool waiting) { waiting_ = waiting; },
                              .lost = [](const std::string& reason) { ADD_FAILURE() << reason; }},
        vxconfd::DispatcherLimits{.small_commit = 0, .queue = 1});
    tracker_->Connect({.paths = {"/config/interface/l3"}, .priority = 0});
    RunFor(milliseconds(500));
  }
  ~CommitTrackerTest() override {
    tracker_.reset();
    vxmw_finish(&mw_);
  }

  void RunFor(milliseconds span) {
    const auto end = std::chrono::steady_clock::now() + span;
    tests::RunUntil(mw_, [end] { return std::chrono::steady_clock::now() >= end; });
  }

  // Makes a commit, and others in their order while it is delivered.
  void CommitAndMeanwhile(int interface, int vlan, const std::function<void()>& others) {
    meanwhile_ = [this, others] {
      const auto done = std::async(std::launch::async, others);
      const auto deadline = std::chrono::steady_clock::now() + tests::kLimit;
      while (done.wait_for(milliseconds(1)) != std::future_status::ready) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        tracker_->TakeWaiting();
      }
    };
    EXPECT_TRUE(tests::ServeWhile(mw_, [=] { Commit(interface, vlan); }));
    EXPECT_TRUE(tests::RunUntil(mw_, [this] { return !delivered_.empty() && !waiting_; }));
  }

  bool HasFaults() const {
    return std::filesystem::exists(repository_.directory() / "faults.jsonl");
  }

  tests::PrivateRepository repository_;
  vxmw_t* mw_ = vxmw_init("commit_tracker_test");
  const vxconfd::Log log_{nullptr, "commit_tracker_test"};
  std::unique_ptr<vxconfd::CommitTracker> tracker_;
  std::vector<std::string> delivered_;
  std::function<void()> meanwhile_;
  bool waiting_ = false;
};

TEST_F(CommitTrackerTest, CommitsThatTheQueueHasNoRoomForAreDeliveredTogetherWithoutAFault) {
  CommitAndMeanwhile(1, 10, [] {
    Commit(2, 20);
    Commit(3, 30);
    Commit(3, 31);
    Commit(4, 40);
  });
  EXPECT_THAT(delivered_, ElementsAre("10", "20", "31 40"));
  RunFor(milliseconds(2500));
  EXPECT_EQ(delivered_.size(), 3U);
  EXPECT_FALSE(HasFaults());
}

TEST_F(CommitTrackerTest, ACommitAfterwardsIsDeliveredByItself) {
  CommitAndMeanwhile(1, 10, [] {
    Commit(2, 20);
    Commit(3, 30);
  });
  RunFor(milliseconds(500));
  EXPECT_TRUE(tests::ServeWhile(mw_, [] { Commit(4, 40); }));
  EXPECT_TRUE(tests::RunUntil(mw_, [this] { return delivered_.size() == 4; }));
  EXPECT_THAT(delivered_, ElementsAre("10", "20", "30", "40"));
  EXPECT_FALSE(HasFaults());
}

}  // namespace
