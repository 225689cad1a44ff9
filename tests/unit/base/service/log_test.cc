#include "base/service/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/fakes/fake_vxmw.h"
#include "tests/fakes/fake_zlog.h"
#include "tests/fakes/journal.h"

namespace {

using fakes::Vxmw;
using fakes::Zlog;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class LogTest : public ::testing::Test {
 protected:
  LogTest() {
    Vxmw::Get().Reset();
    Zlog::Get().Reset();
    fakes::Journal::Get().Clear();
    base::StartLog("base_test");
  }

  void LogSomething() { base::LogError("from a member"); }
};

TEST_F(LogTest, StartsOnTheCategoryThatItNames) {
  EXPECT_THAT(fakes::Journal::Get().entries(),
              ElementsAre("vxmw_trace_register_category base_test"));
  base::LogError("text");
  ASSERT_THAT(Zlog::Get().lines, SizeIs(1));
  EXPECT_EQ(Zlog::Get().lines[0].category, Vxmw::Category());
}

TEST_F(LogTest, WritesErrorsAndTraceAtTheirLevels) {
  base::LogError("an error");
  base::LogTrace("a detail");
  EXPECT_THAT(Zlog::Get().Texts(), ElementsAre("12 TestBody: an error", "10 TestBody: a detail"));
}

TEST_F(LogTest, NamesTheCallersPlace) {
  base::LogError("text");
  const int line = __LINE__ - 1;
  ASSERT_THAT(Zlog::Get().lines, SizeIs(1));
  EXPECT_EQ(Zlog::Get().lines[0].source_path, __FILE__);
  EXPECT_EQ(Zlog::Get().lines[0].line, line);
  EXPECT_EQ(Zlog::Get().wrong_lengths, 0);
}

TEST_F(LogTest, NamesTheBareFunction) {
  LogSomething();
  ASSERT_THAT(Zlog::Get().lines, SizeIs(1));
  EXPECT_EQ(Zlog::Get().lines[0].function, "LogSomething");
}

TEST_F(LogTest, TakesNoTextForAFormat) {
  base::LogError("100%s of %n");
  EXPECT_THAT(Zlog::Get().Texts(), ElementsAre("12 TestBody: 100%s of %n"));
}

TEST_F(LogTest, DropsLinesWithoutACategory) {
  Vxmw::Get().category_result = nullptr;
  base::StartLog("base_test");
  base::LogError("text");
  base::LogTrace("text");
  EXPECT_THAT(Zlog::Get().lines, IsEmpty());
}

TEST_F(LogTest, ALimitedLogWritesItsBurstThenOneLineAnInterval) {
  base::LimitedLog log(2, seconds(10));
  const auto now = base::LimitedLog::Clock::now();
  for (int i = 0; i < 4; ++i) log.Error("refused", now);
  EXPECT_THAT(Zlog::Get().lines, SizeIs(2));
  log.Error("refused", now + seconds(11));
  log.Error("refused", now + seconds(12));
  EXPECT_THAT(Zlog::Get().lines, SizeIs(3));
}

TEST_F(LogTest, ALimitedLogMakesTheTextOnlyOfALineThatItWrites) {
  base::LimitedLog log(1, seconds(10));
  const auto now = base::LimitedLog::Clock::now();
  int made = 0;
  const auto text = [&made] { return "refused " + std::to_string(++made); };
  for (int i = 0; i < 4; ++i) log.ErrorOf(text, now);
  log.ErrorOf(text, now + seconds(11));
  EXPECT_THAT(
      Zlog::Get().Texts(),
      ElementsAre("12 TestBody: refused 1", "12 TestBody: refused 2 (3 more of these not logged)"));
}

TEST_F(LogTest, ALimitedLogSaysHowManyLinesItLeftOut) {
  base::LimitedLog log(1, seconds(10));
  const auto now = base::LimitedLog::Clock::now();
  for (int i = 0; i < 4; ++i) log.Error("refused", now);
  log.Error("refused", now + seconds(11));
  log.Error("refused", now + seconds(22));
  EXPECT_THAT(Zlog::Get().Texts(), ElementsAre("12 TestBody: refused",
                                               "12 TestBody: refused (3 more of these not logged)",
                                               "12 TestBody: refused"));
}

}  // namespace
