#include "dhcp_manager/datapath/adaptive_polling.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

TEST(AdaptivePollingTest, StartsAfterManyWakesInAShortTime) {
  using std::chrono::milliseconds;
  dhcp_manager::AdaptivePolling adaptive_polling;
  auto now = dhcp_manager::AdaptivePolling::Clock::time_point() + milliseconds(1000);
  bool fast = false;
  int wakes = 0;
  for (; !fast && wakes < 1000; ++wakes) fast = adaptive_polling.ShouldStart(now);
  EXPECT_TRUE(fast);
  EXPECT_GT(wakes, 1);
}

TEST(AdaptivePollingTest, NeverStartsWhenWakesAreApart) {
  using std::chrono::milliseconds;
  dhcp_manager::AdaptivePolling adaptive_polling;
  auto now = dhcp_manager::AdaptivePolling::Clock::time_point();
  for (int i = 0; i < 1000; ++i) {
    now += milliseconds(1);
    EXPECT_FALSE(adaptive_polling.ShouldStart(now)) << i;
  }
}

TEST(AdaptivePollingTest, ContinuesUntilNothingComesForAWhile) {
  dhcp_manager::AdaptivePolling adaptive_polling;
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(adaptive_polling.ShouldContinue(i % 2 == 0 ? 0 : 5));
  int empty = 0;
  while (adaptive_polling.ShouldContinue(0) && empty < 1000) ++empty;
  EXPECT_GT(empty, 1);
  EXPECT_LT(empty, 100);
}

}  // namespace
