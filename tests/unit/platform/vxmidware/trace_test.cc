// The trace service starts once in a process, so every test is in a process of its own.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlog.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <vxmw/vxmw.h>

#include "tests/support/loop.h"

namespace {

bool refuse_categories = false;

}  // namespace

// In the library's place: refuses every name, as when there is no memory left.
extern "C" zlog_category_t* zlog_get_category(const char* name) {
  using Call = zlog_category_t* (*)(const char*);
  static const auto library = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "zlog_get_category"));
  return refuse_categories ? nullptr : library(name);
}

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int kTrace = 10;
constexpr int kError = 12;

constexpr char kHead[] =
    "[levels]\nTRACE = 10\nERR = 12\n[formats]\nline = \"%V %U %m%n\"\n[rules]\n";

class Trace : public ::testing::Test {
 protected:
  Trace() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    unsetenv("VXMW_TRACE_CONF");
  }
  ~Trace() override {
    vxmw_finish(&mw_);
    fs::remove_all(directory_);
  }

  void Configure(const std::string& rules) {
    std::ofstream(directory_ / "zlog.conf") << kHead << rules << "\n";
    setenv("VXMW_TRACE_CONF", (directory_ / "zlog.conf").c_str(), 1);
  }

  std::string Written(int level, const char* text) {
    ::testing::internal::CaptureStderr();
    zlog(category_, "src/x", 5, "Function", 8, 1, level, "%s", text);
    return ::testing::internal::GetCapturedStderr();
  }

  int Start() {
    const int result = vxmw_trace_init(mw_, "vxmw_test");
    category_ = vxmw_trace_register_category("some-category");
    return result;
  }

  fs::path directory_;
  vxmw_t* mw_ = vxmw_init("vxmw_test");
  zlog_category_t* category_ = nullptr;
};

TEST_F(Trace, HasNoCategoriesBeforeItStarts) {
  EXPECT_EQ(vxmw_trace_register_category("some-category"), nullptr);
}

TEST_F(Trace, NeedsAnAttachedProcess) { EXPECT_EQ(vxmw_trace_init(nullptr, "vxmw_test"), 0); }

TEST_F(Trace, BuiltInWritesErrorsAndNothingElse) {
  ASSERT_NE(Start(), 0);
  ASSERT_NE(category_, nullptr);
  EXPECT_FALSE(zlog_level_enabled(category_, kTrace));
  EXPECT_TRUE(zlog_level_enabled(category_, kError));
  EXPECT_THAT(Written(kError, "an error"), HasSubstr("an error"));
  EXPECT_THAT(Written(kTrace, "a trace"), IsEmpty());
}

TEST_F(Trace, FollowsTheFileThatTheEnvironmentNames) {
  Configure("*.TRACE >stderr; line");
  ASSERT_NE(Start(), 0);
  EXPECT_TRUE(zlog_level_enabled(category_, kTrace));
  EXPECT_EQ(Written(kTrace, "a trace"), "TRACE Function a trace\n");
}

TEST_F(Trace, WithoutTheNamedFileFailsAndStillWritesErrors) {
  setenv("VXMW_TRACE_CONF", (directory_ / "nowhere").c_str(), 1);
  EXPECT_EQ(Start(), 0);
  EXPECT_THAT(Written(kError, "an error"), HasSubstr("an error"));
}

TEST_F(Trace, WithABrokenFileFailsAndStillWritesErrors) {
  Configure("this is no rule");
  EXPECT_EQ(Start(), 0);
  EXPECT_THAT(Written(kError, "an error"), HasSubstr("an error"));
}

TEST_F(Trace, GivesTheApplicationsCategoryInThePlaceOfOneThatCannotBe) {
  ASSERT_NE(Start(), 0);
  zlog_category_t* const own = vxmw_trace_register_category("vxmw_test");
  EXPECT_NE(own, category_);
  EXPECT_EQ(vxmw_trace_register_category(std::string(2000, 'x').c_str()), own);
  EXPECT_EQ(vxmw_trace_register_category(nullptr), own);
  refuse_categories = true;
  category_ = vxmw_trace_register_category("another");
  EXPECT_EQ(category_, own);
  EXPECT_THAT(Written(kError, "an error"), HasSubstr("an error"));
}

TEST_F(Trace, GivesACategoryToAnApplicationWithTooLongAName) {
  EXPECT_NE(vxmw_trace_init(mw_, std::string(2000, 'x').c_str()), 0);
  category_ = vxmw_trace_register_category(std::string(2000, 'x').c_str());
  EXPECT_THAT(Written(kError, "an error"), HasSubstr("an error"));
}

// The real library would crash on the line if it ran.
TEST_F(Trace, DoesNotRunWithoutAnyCategory) {
  refuse_categories = true;
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(category_, nullptr);
  EXPECT_EQ(Written(kError, "an error"), "");
  refuse_categories = false;
  EXPECT_NE(Start(), 0);
  EXPECT_THAT(Written(kError, "an error"), HasSubstr("an error"));
}

TEST_F(Trace, ThatRunsEndsTheProcessOnALineOfANullCategory) {
  ASSERT_NE(Start(), 0);
  category_ = nullptr;
  EXPECT_EQ(zlog_level_enabled(category_, kError), 0);
  EXPECT_DEATH(Written(kError, "an error"), "");
}

class TraceReload : public Trace {
 protected:
  // Until the trace level is as wanted, or for a moment when it is to stay.
  void HangUp(bool trace) {
    kill(getpid(), SIGHUP);
    tests::RunUntil(mw_, [&] { return zlog_level_enabled(category_, kTrace) == trace; });
  }
};

TEST_F(TraceReload, SwitchesTraceOnForACategoryInUse) {
  Configure("*.ERR >stderr; line");
  ASSERT_NE(Start(), 0);
  ASSERT_FALSE(zlog_level_enabled(category_, kTrace));
  Configure("*.TRACE >stderr; line");
  HangUp(true);
  EXPECT_TRUE(zlog_level_enabled(category_, kTrace));
  EXPECT_THAT(Written(kTrace, "a trace"), HasSubstr("a trace"));
}

TEST_F(TraceReload, OfABrokenFileKeepsWhatWas) {
  Configure("*.TRACE >stderr; line");
  ASSERT_NE(Start(), 0);
  Configure("this is no rule");
  kill(getpid(), SIGHUP);
  ::testing::internal::CaptureStderr();
  bool go_on = true;
  vxmw::TimerSource end(mw_, [&] { go_on = false; });
  end.Arm(std::chrono::milliseconds(20));
  vxmw_loop_while_timeout(mw_, &go_on, 5);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("stays as it was"));
  EXPECT_TRUE(zlog_level_enabled(category_, kTrace));
  EXPECT_THAT(Written(kTrace, "a trace"), Not(IsEmpty()));
}

}  // namespace
