#include "tests/support/loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;

class Loop : public ::testing::Test {
 protected:
  ~Loop() override { vxmw_finish(&mw_); }

  int Run() {
    bool go_on = true;
    return vxmw_loop_while_timeout(mw_, &go_on, 0);
  }

  vxmw_t* mw_ = vxmw_init("vxmw_test");
};

TEST_F(Loop, OneAttachmentAtATime) {
  ASSERT_NE(mw_, nullptr);
  EXPECT_EQ(vxmw_init("another"), nullptr);
  vxmw_finish(&mw_);
  EXPECT_EQ(mw_, nullptr);
  mw_ = vxmw_init("another");
  EXPECT_NE(mw_, nullptr);
}

TEST(Attach, NeedsAName) {
  EXPECT_EQ(vxmw_init(nullptr), nullptr);
  EXPECT_EQ(vxmw_init(""), nullptr);
}

TEST(Attach, FinishTakesNothingForAnAnswer) {
  vxmw_t* mw = nullptr;
  vxmw_finish(&mw);
  vxmw_finish(nullptr);
  EXPECT_EQ(mw, nullptr);
}

TEST_F(Loop, EndsWith0OnSigterm) {
  vxmw::TimerSource timer(mw_, [] { kill(getpid(), SIGTERM); });
  timer.Arm(milliseconds(1));
  EXPECT_EQ(Run(), 0);
}

TEST_F(Loop, EndsWith0OnSigint) {
  vxmw::TimerSource timer(mw_, [] { kill(getpid(), SIGINT); });
  timer.Arm(milliseconds(1));
  EXPECT_EQ(Run(), 0);
}

TEST_F(Loop, ASignalBeforeItRunsIsNotLost) {
  kill(getpid(), SIGTERM);
  EXPECT_EQ(Run(), 0);
}

TEST_F(Loop, SurvivesSighupSigpipeAndSigxfsz) {
  for (const int number : {SIGHUP, SIGPIPE, SIGXFSZ}) kill(getpid(), number);
  vxmw::TimerSource timer(mw_, [this] { vxmw::EndLoop(mw_, 5); });
  timer.Arm(milliseconds(20));
  EXPECT_EQ(Run(), 5);
}

TEST_F(Loop, CallsBackOnSighupWhoWatchesForIt) {
  int told = 0;
  {
    const vxmw::HangupWatch first(mw_, [&] { ++told; });
    const vxmw::HangupWatch second(mw_, [&] { vxmw::EndLoop(mw_, ++told); });
    kill(getpid(), SIGHUP);
    EXPECT_EQ(Run(), 2);
  }
  vxmw::TimerSource timer(mw_, [this] { vxmw::EndLoop(mw_, 0); });
  timer.Arm(milliseconds(20));
  kill(getpid(), SIGHUP);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(told, 2);
}

TEST_F(Loop, CarriesTheExceptionOfAHangupWatch) {
  const vxmw::HangupWatch watch(mw_, [] { throw 7; });
  kill(getpid(), SIGHUP);
  EXPECT_THROW(Run(), int);
}

TEST_F(Loop, ReturnsWhatItWasEndedWith) {
  vxmw::TimerSource timer(mw_, [this] { vxmw::EndLoop(mw_, -3); });
  timer.Arm(milliseconds(0));
  EXPECT_EQ(Run(), -3);
}

TEST_F(Loop, LooksAtTheFlagAgainAfterTheTimeout) {
  bool go_on = true;
  vxmw::TimerSource timer(mw_, [&] { go_on = false; });
  timer.Arm(milliseconds(1));
  EXPECT_EQ(vxmw_loop_while_timeout(mw_, &go_on, 10), 0);
  EXPECT_EQ(vxmw_loop_while_timeout(mw_, &go_on, 0), 0);
}

TEST_F(Loop, RethrowsWhatLeftACallbackAndCanRunAgain) {
  vxmw::TimerSource timer(mw_, [] { throw std::out_of_range("map::at"); });
  timer.Arm(milliseconds(0));
  try {
    Run();
    FAIL() << "nothing was thrown";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "map::at");
  }
  vxmw::TimerSource end(mw_, [this] { vxmw::EndLoop(mw_, 0); });
  end.Arm(milliseconds(0));
  EXPECT_EQ(Run(), 0);
}

TEST_F(Loop, TellsTheServiceManagerOfReadinessAndTheEnd) {
  std::array<char, 32> directory{"/tmp/vxu.XXXXXX"};
  ASSERT_NE(mkdtemp(directory.data()), nullptr);
  const std::string path = std::string(directory.data()) + "/notify";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  setenv("NOTIFY_SOCKET", path.c_str(), 1);
  kill(getpid(), SIGTERM);
  Run();
  unsetenv("NOTIFY_SOCKET");

  std::vector<std::string> told;
  std::array<char, 256> buffer{};
  ssize_t size = 0;
  while ((size = recv(fd, buffer.data(), buffer.size(), 0)) > 0) {
    told.emplace_back(buffer.data(), static_cast<std::size_t>(size));
  }
  close(fd);
  std::filesystem::remove_all(directory.data());
  EXPECT_THAT(told, ElementsAre("READY=1", "STOPPING=1"));
}

TEST_F(Loop, ATimerRunsOnceForEachTimeItIsArmed) {
  int runs = 0;
  vxmw::TimerSource timer(mw_, [&] { ++runs; });
  timer.Arm(milliseconds(0));
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return runs == 1; }));
  timer.Arm(milliseconds(0));
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return runs == 2; }));
}

TEST_F(Loop, ADisarmedTimerDoesNotRun) {
  bool ran = false;
  vxmw::TimerSource timer(mw_, [&] { ran = true; });
  timer.Arm(milliseconds(0));
  timer.Disarm();
  vxmw::TimerSource end(mw_, [this] { vxmw::EndLoop(mw_, 0); });
  end.Arm(milliseconds(10));
  Run();
  EXPECT_FALSE(ran);
}

TEST_F(Loop, ASourceMayGoFromWithinItsCallback) {
  auto timer = std::make_unique<std::unique_ptr<vxmw::TimerSource>>();
  std::string after;
  *timer = std::make_unique<vxmw::TimerSource>(mw_, [&, text = std::string(100, 'x')] {
    timer->reset();
    after = text;  // what the callback holds is still there
  });
  (*timer)->Arm(milliseconds(0));
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return !after.empty(); }));
  EXPECT_EQ(after, std::string(100, 'x'));
}

TEST_F(Loop, AnIoSourceTellsWhatIsReady) {
  std::array<int, 2> fds{};
  ASSERT_EQ(pipe(fds.data()), 0);
  std::uint32_t ready = 0;
  std::vector<vxmw::IoSource> sources;
  sources.emplace_back(mw_, fds[0], EPOLLIN, [&](std::uint32_t events) {
    ready = events;
    sources.clear();
  });
  ASSERT_EQ(write(fds[1], "x", 1), 1);
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return ready != 0; }));
  EXPECT_EQ(ready, static_cast<std::uint32_t>(EPOLLIN));
  close(fds[0]);
  close(fds[1]);
}

TEST_F(Loop, AnIoSourceChangesWhatItWatches) {
  std::array<int, 2> fds{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds.data()), 0);
  std::uint32_t ready = 0;
  vxmw::IoSource source(mw_, fds[0], 0, [&](std::uint32_t events) {
    ready = events;
    source.SetEvents(0);
  });
  source.SetEvents(EPOLLOUT);
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return ready != 0; }));
  EXPECT_EQ(ready, static_cast<std::uint32_t>(EPOLLOUT));
  close(fds[0]);
  close(fds[1]);
}

TEST_F(Loop, ABadDescriptorIsRefused) {
  EXPECT_THROW(vxmw::IoSource(mw_, -1, EPOLLIN, {}), std::system_error);
}

TEST_F(Loop, TellsOfChangesOfTheConfigurationsReadinessOnly) {
  std::vector<bool> told;
  EXPECT_FALSE(vxmw::ConfigReady(mw_));
  {
    const vxmw::ConfigReadyWatch watch(mw_, [&](bool ready) { told.push_back(ready); });
    vxmw::SetConfigReady(mw_, false);
    vxmw::SetConfigReady(mw_, true);
    vxmw::SetConfigReady(mw_, true);
    vxmw::SetConfigReady(mw_, false);
  }
  vxmw::SetConfigReady(mw_, true);
  EXPECT_THAT(told, ElementsAre(true, false));
  EXPECT_TRUE(vxmw::ConfigReady(mw_));
}

}  // namespace
