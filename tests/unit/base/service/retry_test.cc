// Retrying, on timers whose delays the test sees and ends.

#include "base/service/retry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/fakes/fake_timers.h"

namespace {

using fakes::Timers;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RetryTest : public ::testing::Test {
 protected:
  RetryTest() { Timers::Get().Reset(); }

  base::Retry Make(milliseconds patience = milliseconds(0)) {
    return {nullptr,
            {.first = milliseconds(50), .longest = milliseconds(300), .patience = patience},
            [this](const std::string& reason) { reported_.push_back(reason); },
            [this] { ++attempts_; }};
  }

  int attempts_ = 0;
  std::vector<std::string> reported_;
};

TEST_F(RetryTest, MakesTheFirstAttemptFromTheLoopAtOnce) {
  base::Retry retry = Make();
  retry.Start();
  EXPECT_EQ(attempts_, 0);
  EXPECT_THAT(Timers::Get().delays, ElementsAre(milliseconds(0)));
  EXPECT_TRUE(Timers::Get().Fire());
  EXPECT_EQ(attempts_, 1);
}

TEST_F(RetryTest, DoesNothingUntilItIsStarted) {
  base::Retry retry = Make();
  EXPECT_FALSE(Timers::Get().Fire());
}

TEST_F(RetryTest, TriesAgainAfterEachFailure) {
  base::Retry retry = Make();
  retry.Start();
  for (int failures = 0; failures < 3; ++failures) {
    EXPECT_TRUE(Timers::Get().Fire());
    retry.Failed("down");
  }
  EXPECT_TRUE(Timers::Get().Fire());
  EXPECT_EQ(attempts_, 4);
}

TEST_F(RetryTest, DoublesTheDelayUpToTheLongest) {
  base::Retry retry = Make();
  for (int i = 0; i < 5; ++i) retry.Failed("down");
  EXPECT_THAT(Timers::Get().delays,
              ElementsAre(milliseconds(50), milliseconds(100), milliseconds(200), milliseconds(300),
                          milliseconds(300)));
}

TEST_F(RetryTest, ReportsAReasonOnceUntilItChanges) {
  base::Retry retry = Make();
  for (const char* reason : {"no file", "no file", "refused", "refused", "no file"}) {
    retry.Failed(reason);
  }
  EXPECT_THAT(reported_, ElementsAre("no file", "refused", "no file"));
}

TEST_F(RetryTest, ReportsNothingWhileTheDelayIsShorterThanThePatience) {
  base::Retry retry = Make(milliseconds(200));
  retry.Failed("down");
  retry.Failed("down");
  EXPECT_THAT(reported_, IsEmpty());
  retry.Failed("down");  // the delay is 200 ms
  EXPECT_THAT(reported_, ElementsAre("down"));
}

TEST_F(RetryTest, BeginsAnewAfterASuccess) {
  base::Retry retry = Make();
  retry.Failed("down");
  retry.Failed("down");
  retry.Succeeded();
  retry.Failed("down");
  EXPECT_THAT(Timers::Get().delays,
              ElementsAre(milliseconds(50), milliseconds(100), milliseconds(50)));
  EXPECT_THAT(reported_, ElementsAre("down", "down"));
}

TEST_F(RetryTest, MakesNoAttemptAfterASuccess) {
  base::Retry retry = Make();
  retry.Failed("down");
  retry.Succeeded();
  EXPECT_FALSE(Timers::Get().Fire());
  EXPECT_EQ(attempts_, 0);
}

}  // namespace
