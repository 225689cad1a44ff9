// What the service manager is told, on a socket in its place.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "tests/support/loop.h"

namespace {

using std::chrono::milliseconds;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class Notify : public ::testing::Test {
 protected:
  Notify() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    const std::string path = directory_ / "notify";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  ~Notify() override {
    vxmw_finish(&mw_);
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    close(fd_);
    std::filesystem::remove_all(directory_);
  }

  // Everything told so far.
  const std::vector<std::string>& Told() {
    std::array<char, 256> buffer{};
    ssize_t size = 0;
    while ((size = recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
      told_.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    }
    return told_;
  }

  int RunOnce() {
    vxmw::TimerSource end(mw_, [this] { vxmw::EndLoop(mw_, 0); });
    end.Arm(milliseconds(0));
    bool go_on = true;
    return vxmw_loop_while_timeout(mw_, &go_on, 0);
  }

  std::filesystem::path directory_;
  int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  vxmw_t* mw_ = vxmw_init("vxmw_test");
  std::vector<std::string> told_;
};

TEST_F(Notify, IsNotToldBeforeTheLoopRuns) {
  EXPECT_THAT(Told(), IsEmpty());
  vxmw_finish(&mw_);
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(Notify, IsToldOfReadinessWithinTheLoop) {
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return !Told().empty(); }));
  EXPECT_THAT(Told(), ElementsAre("READY=1"));
}

TEST_F(Notify, IsToldOfEachOnce) {
  RunOnce();
  RunOnce();
  vxmw_finish(&mw_);
  EXPECT_THAT(Told(), ElementsAre("READY=1", "STOPPING=1"));
}

TEST_F(Notify, IsToldOfTheEndByAnException) {
  vxmw::TimerSource timer(mw_, [] { throw std::runtime_error("failed"); });
  timer.Arm(milliseconds(0));
  bool go_on = true;
  EXPECT_THROW(vxmw_loop_while_timeout(mw_, &go_on, 0), std::runtime_error);
  EXPECT_THAT(Told(), ElementsAre("READY=1", "STOPPING=1"));
}

TEST_F(Notify, IsNotToldOfTheEndWhileTheLoopMayGoOn) {
  tests::RunUntil(mw_, [] { return true; });
  EXPECT_THAT(Told(), ElementsAre("READY=1"));
  vxmw_finish(&mw_);
  EXPECT_THAT(Told(), ElementsAre("READY=1", "STOPPING=1"));
}

TEST_F(Notify, KeepsTheWatchdogFed) {
  setenv("WATCHDOG_USEC", "20000", 1);
  const auto fed = [&] {
    const auto& told = Told();
    return std::count(told.begin(), told.end(), "WATCHDOG=1") >= 3;
  };
  EXPECT_TRUE(tests::RunUntil(mw_, fed));
}

TEST_F(Notify, KeepsTheWatchdogFedByWorkThatKeepsTheLoopFromRunning) {
  setenv("WATCHDOG_USEC", "20000", 1);
  RunOnce();
  const auto deadline = std::chrono::steady_clock::now() + tests::kLimit;
  const auto fed = [&] {
    const auto& told = Told();
    return std::count(told.begin(), told.end(), "WATCHDOG=1") >= 3;
  };
  while (!fed() && std::chrono::steady_clock::now() < deadline) EXPECT_TRUE(vxmw::KeepAlive(mw_));
  EXPECT_TRUE(fed());
}

TEST_F(Notify, FeedsNoWatchdogThatIsNotThere) {
  RunOnce();
  EXPECT_TRUE(vxmw::KeepAlive(mw_));
  EXPECT_THAT(Told(), Not(Contains("WATCHDOG=1")));
}

}  // namespace
