// Which trace configuration is used, and what becomes of one that is of no use. The trace service
// starts once in a process, so every test is in a process of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlog.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "platform/vxmidware/src/trace.h"
#include "tests/support/loop.h"

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr int kTrace = 10;
constexpr int kError = 12;

constexpr char kHead[] =
    "[levels]\nTRACE = 10\nERR = 12\n[formats]\nline = \"%V %U %m%n\"\n[rules]\n";

class TraceConfiguration : public ::testing::Test {
 protected:
  TraceConfiguration() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    unsetenv("VXMW_TRACE_CONF");
  }
  ~TraceConfiguration() override {
    vxmw_finish(&mw_);
    unsetenv("VXMW_TRACE_CONF");
    fs::remove_all(directory_);
  }

  std::string File(const std::string& text, const std::string& name = "zlog.conf") const {
    std::ofstream(directory_ / name) << text;
    return directory_ / name;
  }

  // Starts the service with `file`; what it says goes to told_.
  int StartWith(const std::string& file) {
    setenv("VXMW_TRACE_CONF", file.c_str(), 1);
    ::testing::internal::CaptureStderr();
    const int result = vxmw_trace_init(mw_, "vxmw_test");
    told_ = ::testing::internal::GetCapturedStderr();
    category_ = vxmw_trace_register_category("vxmw_test");
    return result;
  }

  // Reads the configuration again, as a user does; returns what is said of it.
  std::string HangUp() {
    ::testing::internal::CaptureStderr();
    kill(getpid(), SIGHUP);
    vxmw::TimerSource end(mw_, [this] { vxmw::EndLoop(mw_, 0); });
    end.Arm(std::chrono::milliseconds(20));
    bool go_on = true;
    vxmw_loop_while_timeout(mw_, &go_on, 0);
    return ::testing::internal::GetCapturedStderr();
  }

  std::string Written(int level, const char* text) const {
    ::testing::internal::CaptureStderr();
    zlog(category_, "src/some/file", 13, "Function", 8, 7, level, "%s", text);
    return ::testing::internal::GetCapturedStderr();
  }

  void ExpectErrorsOnly() const {
    ASSERT_NE(category_, nullptr);
    EXPECT_FALSE(zlog_level_enabled(category_, kTrace));
    EXPECT_TRUE(zlog_level_enabled(category_, kError));
    EXPECT_THAT(Written(kTrace, "a trace"), IsEmpty());
    EXPECT_THAT(Written(kError, "an error"),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} ERR src/some/file "
                             "Function:7 an error\n"));
  }

  fs::path directory_;
  vxmw_t* mw_ = vxmw_init("vxmw_test");
  zlog_category_t* category_ = nullptr;
  std::string told_;
};

TEST_F(TraceConfiguration, IsTheNamedFileBeforeTheInstalledOne) {
  const std::string installed = File("", "installed.conf");
  setenv("VXMW_TRACE_CONF", "/named", 1);
  EXPECT_EQ(vxmw::TraceConfiguration(installed), "/named");
  setenv("VXMW_TRACE_CONF", "", 1);
  EXPECT_EQ(vxmw::TraceConfiguration(installed), installed);
  unsetenv("VXMW_TRACE_CONF");
  EXPECT_EQ(vxmw::TraceConfiguration(installed), installed);
}

TEST_F(TraceConfiguration, IsTheOneBuiltInWithoutAFile) {
  EXPECT_EQ(vxmw::TraceConfiguration(directory_ / "nowhere"), "");
}

TEST_F(TraceConfiguration, AsInstalledWritesErrorsOnly) {
  EXPECT_NE(StartWith(std::string(VX_SOURCE_DIR) + "/packaging/zlog/zlog.conf"), 0);
  EXPECT_THAT(told_, IsEmpty());
  ExpectErrorsOnly();
}

TEST_F(TraceConfiguration, BuiltInWritesAsTheInstalledOne) {
  StartWith(directory_ / "nowhere");
  ExpectErrorsOnly();
}

// What the installed file offers in its comments: those rules in the place of its own.
TEST_F(TraceConfiguration, AsInstalledOffersTraceForOneProcess) {
  std::ifstream in(std::string(VX_SOURCE_DIR) + "/packaging/zlog/zlog.conf");
  std::string sections;
  std::string offered;
  for (std::string line; std::getline(in, line);) {
    const bool is_comment = line.rfind('#', 0) == 0;
    const bool is_rule = line.find(">stderr; line") != std::string::npos;
    if (is_comment && is_rule) offered += line.substr(line.find_first_not_of("# ")) + "\n";
    if (!is_comment && !is_rule) sections += line + "\n";
  }
  EXPECT_NE(StartWith(File(sections + offered)), 0);
  const auto enabled = [](const char* category, int level) {
    return zlog_level_enabled(vxmw_trace_register_category(category), level) != 0;
  };
  EXPECT_TRUE(enabled("dhcp-relay-app", kTrace));
  EXPECT_FALSE(enabled("dhcp-manager", kTrace));
  EXPECT_TRUE(enabled("dhcp-manager", kError));
}

TEST_F(TraceConfiguration, ThatIsMissingIsNamed) {
  const std::string file = directory_ / "nowhere";
  EXPECT_EQ(StartWith(file), 0);
  EXPECT_THAT(told_, AllOf(HasSubstr(file), HasSubstr("trace is off")));
}

TEST_F(TraceConfiguration, ThatIsADirectoryIsRefused) {
  EXPECT_EQ(StartWith(directory_), 0);
  EXPECT_THAT(told_, HasSubstr(directory_.string()));
  ExpectErrorsOnly();
}

TEST_F(TraceConfiguration, ThatIsBrokenIsRefused) {
  const std::string file = File(std::string(kHead) + "this is no rule\n");
  EXPECT_EQ(StartWith(file), 0);
  EXPECT_THAT(told_, HasSubstr(file));
  ExpectErrorsOnly();
}

TEST_F(TraceConfiguration, ThatIsEmptyIsRefused) {
  const std::string file = File("");
  EXPECT_EQ(StartWith(file), 0);
  EXPECT_THAT(told_, HasSubstr(file));
  ExpectErrorsOnly();
}

TEST_F(TraceConfiguration, IsReadOnceUnlessToldTo) {
  const std::string file = File(std::string(kHead) + "*.ERR >stderr; line\n");
  ASSERT_NE(StartWith(file), 0);
  File(std::string(kHead) + "*.TRACE >stderr; line\n");
  EXPECT_NE(vxmw_trace_init(mw_, "vxmw_test"), 0);
  EXPECT_FALSE(zlog_level_enabled(category_, kTrace));
}

TEST_F(TraceConfiguration, OutlivesTheAttachment) {
  ASSERT_NE(StartWith(File(std::string(kHead) + "*.ERR >stderr; line\n")), 0);
  vxmw_finish(&mw_);
  EXPECT_EQ(Written(kError, "late"), "ERR Function late\n");
}

TEST_F(TraceConfiguration, ChosenAnewByAReload) {
  ASSERT_NE(StartWith(File(std::string(kHead) + "*.TRACE >stderr; line\n")), 0);
  ASSERT_TRUE(zlog_level_enabled(category_, kTrace));
  File(std::string(kHead) + "*.ERR >stderr; line\n");
  EXPECT_THAT(HangUp(), IsEmpty());
  EXPECT_FALSE(zlog_level_enabled(category_, kTrace));
  EXPECT_EQ(vxmw_trace_register_category("vxmw_test"), category_);
  const std::string other = File(std::string(kHead) + "*.TRACE >stderr; line\n", "other.conf");
  setenv("VXMW_TRACE_CONF", other.c_str(), 1);
  HangUp();
  EXPECT_EQ(Written(kTrace, "again"), "TRACE Function again\n");
  unsetenv("VXMW_TRACE_CONF");
  HangUp();
  EXPECT_FALSE(zlog_level_enabled(category_, kTrace));
  EXPECT_TRUE(zlog_level_enabled(category_, kError));
}

TEST_F(TraceConfiguration, GoneAtAReloadChangesNothing) {
  const std::string file = File(std::string(kHead) + "*.TRACE >stderr; line\n");
  ASSERT_NE(StartWith(file), 0);
  fs::remove(file);
  EXPECT_THAT(HangUp(), AllOf(HasSubstr(file), HasSubstr("stays as it was")));
  EXPECT_EQ(Written(kTrace, "still"), "TRACE Function still\n");
}

TEST_F(TraceConfiguration, MendedAtAReloadIsUsed) {
  const std::string file = File("this is no section\n");
  ASSERT_EQ(StartWith(file), 0);
  File(std::string(kHead) + "*.TRACE >stderr; line\n");
  EXPECT_THAT(HangUp(), IsEmpty());
  EXPECT_EQ(Written(kTrace, "mended"), "TRACE Function mended\n");
}

TEST_F(TraceConfiguration, IsNotReadByAHangupBeforeTheServiceStarts) {
  setenv("VXMW_TRACE_CONF", "/nowhere", 1);
  EXPECT_THAT(HangUp(), IsEmpty());
}

TEST_F(TraceConfiguration, NeedsAnApplication) { EXPECT_EQ(vxmw_trace_init(mw_, nullptr), 0); }

}  // namespace
