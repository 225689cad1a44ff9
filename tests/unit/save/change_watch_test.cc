#include "save/change_watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

using save::ChangeWatch;
using std::chrono::milliseconds;
using Task = ChangeWatch::Task;

class ChangeWatchTest : public ::testing::Test {
 protected:
  Task Look(const std::string& modified) { return watch_.Look(modified, now_); }

  // A change that is gathered and saved.
  void Save(const std::string& modified) {
    EXPECT_EQ(Look(modified), Task::kGather);
    now_ += ChangeWatch::kGatherTime;
    EXPECT_EQ(Look(modified), Task::kSave);
    watch_.Saved(now_);
  }

  ChangeWatch watch_;
  ChangeWatch::Clock::time_point now_;
};

TEST_F(ChangeWatchTest, GathersAChangeBeforeItIsSaved) {
  Save("1");
  EXPECT_EQ(Look("1"), Task::kNone);
  Save("2");
}

TEST_F(ChangeWatchTest, SettlesWhenNoMoreCommitsCome) {
  Save("1");
  now_ += ChangeWatch::kSettleDelay - milliseconds(1);
  EXPECT_EQ(Look("1"), Task::kNone);
  now_ += milliseconds(1);
  EXPECT_EQ(Look("1"), Task::kSettle);
  EXPECT_EQ(Look("2"), Task::kGather);
}

TEST_F(ChangeWatchTest, SavesAlthoughMoreCommitsCome) {
  const auto start = now_;
  int number = 0;
  while (Look(std::to_string(++number)) == Task::kGather) now_ += ChangeWatch::kGatherTime;
  EXPECT_GE(now_ - start, ChangeWatch::kLongestGathering);
  EXPECT_LT(now_ - start, ChangeWatch::kLongestGathering + ChangeWatch::kGatherTime);
}

// The next commit may have come within the same tick, after the reading.
TEST_F(ChangeWatchTest, SavesAgainWhatHadOnlyJustChangedWhenItWasSaved) {
  int number = 0;
  while (Look(std::to_string(++number)) == Task::kGather) now_ += ChangeWatch::kGatherTime;
  watch_.Saved(now_);
  EXPECT_EQ(Look(std::to_string(number)), Task::kSave);
  watch_.Saved(now_);
  EXPECT_EQ(Look(std::to_string(number)), Task::kNone);
}

TEST_F(ChangeWatchTest, SavesAgainWhatFailed) {
  EXPECT_EQ(Look("1"), Task::kGather);
  EXPECT_EQ(Look("1"), Task::kSave);
  EXPECT_EQ(Look("1"), Task::kSave);
}

TEST_F(ChangeWatchTest, SavesWhatWasForgotten) {
  Save("1");
  watch_.Forget();
  EXPECT_EQ(Look("1"), Task::kSave);
}

}  // namespace
