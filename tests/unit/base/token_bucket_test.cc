#include "base/token_bucket.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using base::TokenBucket;

TEST(TokenBucketTest, GivesTheBurstThenTheRate) {
  using std::chrono::milliseconds;
  const TokenBucket::Clock::time_point start;
  TokenBucket bucket({.rate = 10, .burst = 3}, start);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(bucket.Take(start));
  EXPECT_FALSE(bucket.Take(start));
  EXPECT_FALSE(bucket.Take(start + milliseconds(50)));
  EXPECT_TRUE(bucket.Take(start + milliseconds(101)));
  EXPECT_FALSE(bucket.Take(start + milliseconds(102)));
}

TEST(TokenBucketTest, SavesNoMoreThanTheBurst) {
  const TokenBucket::Clock::time_point start;
  TokenBucket bucket({.rate = 1000, .burst = 2}, start);
  const auto later = start + std::chrono::hours(1);
  EXPECT_TRUE(bucket.Take(later));
  EXPECT_TRUE(bucket.Take(later));
  EXPECT_FALSE(bucket.Take(later));
}

}  // namespace
