#include "dhcp_manager/datapath/adaptive_polling.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using dhcp_manager::AdaptivePolling;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr int kMany = 10'000;

class AdaptivePollingTest : public ::testing::Test {
 protected:
  // Whether gathering begins under that many round trips a second, each of which wakes up twice.
  bool StartsAt(int round_trips) {
    const microseconds gap(1'000'000 / round_trips / 2);
    for (int i = 0; i < kMany; ++i) {
      if (adaptive_polling_.ShouldStart(now_ += gap)) return true;
    }
    return false;
  }
  // The polls for which gathering goes on when each finds `packets`.
  int PollsWith(std::size_t packets) {
    int polls = 0;
    while (polls < kMany && adaptive_polling_.ShouldContinue(packets)) ++polls;
    return polls;
  }

  AdaptivePolling adaptive_polling_;
  AdaptivePolling::Clock::time_point now_;
};

TEST_F(AdaptivePollingTest, APacketIsHeldForAQuarterOfAMillisecondAtMost) {
  EXPECT_LE(AdaptivePolling::kInterval, microseconds(250));
}

TEST_F(AdaptivePollingTest, EachPacketIsTakenWhenItComesUpToFiveThousandASecond) {
  for (const int round_trips : {1, 200, 1000, 5000}) {
    EXPECT_FALSE(StartsAt(round_trips)) << round_trips;
  }
}

TEST_F(AdaptivePollingTest, GathersAtTenThousandASecond) { EXPECT_TRUE(StartsAt(10'000)); }

TEST_F(AdaptivePollingTest, ABurstAloneStartsNothing) {
  for (int i = 0; i < kMany; ++i) {
    if (i % 200 == 0) now_ += milliseconds(100);
    EXPECT_FALSE(adaptive_polling_.ShouldStart(now_));
  }
}

TEST_F(AdaptivePollingTest, ContinuesWhilePacketsAreMany) { EXPECT_EQ(PollsWith(8), kMany); }

TEST_F(AdaptivePollingTest, ContinuesThroughPollsThatFindNothing) {
  for (int i = 0; i < kMany; ++i) {
    EXPECT_TRUE(adaptive_polling_.ShouldContinue(i % 2 == 0 ? 0 : 16));
  }
}

TEST_F(AdaptivePollingTest, EndsWhenPacketsAreFew) { EXPECT_LT(PollsWith(2), 200); }

TEST_F(AdaptivePollingTest, EndsSoonWhenNothingComes) {
  EXPECT_EQ(PollsWith(8), kMany);
  EXPECT_LT(PollsWith(0), 10);
}

TEST_F(AdaptivePollingTest, StartsAnewWithoutWhatWasBefore) {
  ASSERT_TRUE(StartsAt(10'000));
  PollsWith(0);
  EXPECT_FALSE(adaptive_polling_.ShouldStart(now_));
  EXPECT_FALSE(StartsAt(5000));
  ASSERT_TRUE(StartsAt(10'000));
  EXPECT_GT(PollsWith(8), 200);
}

}  // namespace
