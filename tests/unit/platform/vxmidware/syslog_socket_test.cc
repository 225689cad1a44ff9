// What syslog is told of faults, on a socket in the place of its own.

#include "platform/vxmidware/src/syslog_socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

#include "tests/unit/platform/vxmidware/fault_directory.h"

namespace {

using ::testing::ElementsAre;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tests::Lines;
using tests::Told;

class Syslog : public tests::FaultDirectory {
 protected:
  Syslog() {
    UseSocket(directory_ / "log");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (directory_ / "log").string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(service_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  ~Syslog() override {
    unsetenv("VXMW_SYSLOG_SOCKET");
    close(service_);
  }

  static void UseSocket(const std::string& path) { setenv("VXMW_SYSLOG_SOCKET", path.c_str(), 1); }

  // What the service finds in its socket.
  std::vector<std::string> Messages() const {
    std::vector<std::string> messages;
    std::array<char, 4096> message{};
    ssize_t size = 0;
    while ((size = recv(service_, message.data(), message.size(), 0)) >= 0) {
      messages.emplace_back(message.data(), static_cast<std::size_t>(size));
    }
    return messages;
  }

  int service_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
};

TEST_F(Syslog, TakesEachFaultAsOneMessage) {
  vxmw_gen_fault(0, "Init", "src/lib/logger", 23, "100%s\nof it");
  const auto messages = Messages();
  ASSERT_THAT(messages, SizeIs(1));
  for (const char* part : {"Init", "src/lib/logger", "23", R"(100%s\nof it)"}) {
    EXPECT_THAT(messages[0], HasSubstr(part));
  }
}

TEST_F(Syslog, GetsMessagesInTheFormOfTheCLibrary) {
  EXPECT_TRUE(vxmw::SendToSyslog(LOG_WARNING | LOG_DAEMON, "some text"));
  EXPECT_THAT(
      Messages(),
      ElementsAre(MatchesRegex("<28>[A-Z][a-z]{2} [ 123][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} " +
                               std::string(program_invocation_short_name) + ": some text")));
}

TEST_F(Syslog, GetsMessagesInLocalTime) {
  setenv("TZ", "AAA-7", 1);
  const auto hour = [](std::time_t time) {
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "<28>%b %e %H:", std::localtime(&time));
    return StartsWith(text.data());
  };
  const std::time_t before = std::time(nullptr);
  vxmw::SendToSyslog(LOG_WARNING | LOG_DAEMON, "some text");
  const std::time_t after = std::time(nullptr);
  EXPECT_THAT(Messages(), ElementsAre(::testing::AnyOf(hour(before), hour(after))));
  unsetenv("TZ");
}

TEST_F(Syslog, TakesSeverity0AsAnErrorAndAboveAsCritical) {
  for (const int severity : {0, 1, 2}) vxmw_gen_fault(severity, "f", "p", 1, "t");
  EXPECT_THAT(Messages(), ElementsAre(StartsWith("<27>"), StartsWith("<26>"), StartsWith("<26>")));
}

TEST_F(Syslog, TakesAFaultThatTheFileDoesNot) {
  setenv("VXMW_STATE_DIR", "/proc/nowhere", 1);
  Told();
  EXPECT_THAT(Messages(), SizeIs(1));
}

// The service is stopped: the C library's syslog() would wait for it here.
TEST_F(Syslog, ThatReadsNothingHoldsUpNoFault) {
  std::size_t sent = 0;
  while (vxmw::SendToSyslog(LOG_ERR | LOG_DAEMON, "waiting")) ++sent;
  vxmw_gen_fault(0, "f", "p", 1, "t");
  EXPECT_THAT(Lines(File()), SizeIs(1));
  EXPECT_THAT(sent, Gt(0U));
  EXPECT_THAT(Messages(), SizeIs(sent));
  EXPECT_TRUE(vxmw::SendToSyslog(LOG_ERR | LOG_DAEMON, "it reads again"));
}

TEST_F(Syslog, MayBeMissing) {
  for (const std::string& path : {std::string("/nowhere/log"), "/" + std::string(200, 'x')}) {
    UseSocket(path);
    EXPECT_FALSE(vxmw::SendToSyslog(LOG_ERR | LOG_DAEMON, "text"));
    vxmw_gen_fault(0, "f", "p", 1, "t");
  }
  EXPECT_THAT(Lines(File()), SizeIs(2));
}

TEST_F(Syslog, IsSentNoMoreThanItsSocketHolds) {
  EXPECT_FALSE(vxmw::SendToSyslog(LOG_ERR | LOG_DAEMON, std::string(64U << 20U, 'x')));
}

}  // namespace
