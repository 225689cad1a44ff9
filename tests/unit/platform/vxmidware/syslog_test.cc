// What syslog is told of faults, by a syslog() in the C library's place.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

struct Message {
  int priority;
  std::string text;
};

std::vector<Message>& Messages() {
  static std::vector<Message> messages;
  return messages;
}

void Take(int priority, const char* format, va_list arguments) {
  std::array<char, 1024> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  Messages().push_back({priority, text.data()});
}

}  // namespace

extern "C" void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Take(priority, format, arguments);
  va_end(arguments);
}

// What a hardened build calls instead. The name is the C library's.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Take(priority, format, arguments);
  va_end(arguments);
}

namespace {

class Syslog : public ::testing::Test {
 protected:
  Syslog() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    setenv("VXMW_STATE_DIR", directory_.c_str(), 1);
    Messages().clear();
  }
  ~Syslog() override {
    unsetenv("VXMW_STATE_DIR");
    std::filesystem::remove_all(directory_);
  }

  std::filesystem::path directory_;
};

TEST_F(Syslog, TakesEachFaultAsOneMessage) {
  vxmw_gen_fault(0, "Init", "src/lib/logger", 23, "100%s\nof it");
  ASSERT_THAT(Messages(), SizeIs(1));
  for (const char* part : {"Init", "src/lib/logger", "23", R"(100%s\nof it)"}) {
    EXPECT_THAT(Messages()[0].text, HasSubstr(part));
  }
}

TEST_F(Syslog, TakesSeverity0AsAnErrorAndAboveAsCritical) {
  for (const int severity : {0, 1, 2}) vxmw_gen_fault(severity, "f", "p", 1, "t");
  ASSERT_THAT(Messages(), SizeIs(3));
  EXPECT_EQ(LOG_PRI(Messages()[0].priority), LOG_ERR);
  EXPECT_EQ(LOG_PRI(Messages()[1].priority), LOG_CRIT);
  EXPECT_EQ(LOG_PRI(Messages()[2].priority), LOG_CRIT);
}

TEST_F(Syslog, TakesAFaultThatTheFileDoesNot) {
  setenv("VXMW_STATE_DIR", "/proc/nowhere", 1);
  ::testing::internal::CaptureStderr();
  vxmw_gen_fault(0, "f", "p", 1, "t");
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(Messages(), SizeIs(1));
}

}  // namespace
