// Adaptive polling on the loop.

#include "dhcp_manager/datapath/packet_poller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include <vxmw/vxmw.h>

#include "tests/support/loop.h"

namespace {

using dhcp_manager::AdaptivePolling;
using dhcp_manager::PacketPoller;
using ::testing::ElementsAre;

class PacketPollerTest : public ::testing::Test {
 protected:
  ~PacketPollerTest() override {
    poller_.reset();
    vxmw_finish(&mw_);
  }

  // Wakes up at one instant until polling begins.
  void BeginPolling() {
    for (int i = 0; i < 1000 && wake_up_.empty(); ++i) poller_->OnWake(now_);
    ASSERT_THAT(wake_up_, ElementsAre(false));
  }
  bool RunUntil(const std::function<bool()>& condition) { return tests::RunUntil(mw_, condition); }

  vxmw_t* mw_ = vxmw_init("packet_poller_test");
  AdaptivePolling::Clock::time_point now_ = AdaptivePolling::Clock::now();
  std::size_t waiting_ = 0;  // packets that each poll finds
  int polls_ = 0;
  std::vector<bool> wake_up_;
  std::unique_ptr<PacketPoller> poller_ = std::make_unique<PacketPoller>(
      mw_,
      [this] {
        ++polls_;
        return waiting_;
      },
      [this](bool wake_up) { wake_up_.push_back(wake_up); });
};

TEST_F(PacketPollerTest, WakesUpForEachPacketWhileTheyAreFew) {
  poller_->OnWake(now_);
  int turns = 0;
  ASSERT_TRUE(RunUntil([&] { return ++turns > 5; }));
  EXPECT_THAT(wake_up_, ElementsAre());
  EXPECT_EQ(polls_, 0);
}

TEST_F(PacketPollerTest, PollsWhilePacketsAreFoundThenWakesUpAgain) {
  waiting_ = 3;
  BeginPolling();
  ASSERT_TRUE(RunUntil([this] { return polls_ > 30; }));
  EXPECT_THAT(wake_up_, ElementsAre(false));
  waiting_ = 0;
  ASSERT_TRUE(RunUntil([this] { return wake_up_.size() > 1; }));
  EXPECT_THAT(wake_up_, ElementsAre(false, true));
  const int polls = polls_;
  int turns = 0;
  ASSERT_TRUE(RunUntil([&] { return ++turns > 5; }));
  EXPECT_EQ(polls_, polls);
}

TEST_F(PacketPollerTest, AWakeUpWhilePollingChangesNothing) {
  waiting_ = 1;
  BeginPolling();
  for (int i = 0; i < 1000; ++i) poller_->OnWake(now_);
  EXPECT_THAT(wake_up_, ElementsAre(false));
}

TEST_F(PacketPollerTest, PollingBeginsAnewAfterItEnded) {
  BeginPolling();
  ASSERT_TRUE(RunUntil([this] { return wake_up_.size() == 2; }));
  wake_up_.clear();
  BeginPolling();
  EXPECT_TRUE(RunUntil([this] { return wake_up_.size() == 2; }));
}

}  // namespace
