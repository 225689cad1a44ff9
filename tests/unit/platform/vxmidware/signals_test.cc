// What signals do to an attached process, before, within and after the loop.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "tests/support/loop.h"

namespace {

using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

constexpr int kDone = 42;

class Signals : public ::testing::Test {
 protected:
  ~Signals() override { vxmw_finish(&mw_); }

  int Run() {
    bool go_on = true;
    return vxmw_loop_while_timeout(mw_, &go_on, 0);
  }

  vxmw_t* mw_ = vxmw_init("vxmw_test");
};

bool IsBlocked(int number) {
  sigset_t now;
  pthread_sigmask(SIG_BLOCK, nullptr, &now);
  return sigismember(&now, number) == 1;
}

TEST_F(Signals, AreBlockedFromAttachingToFinishing) {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) EXPECT_TRUE(IsBlocked(number)) << number;
  vxmw_finish(&mw_);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) EXPECT_FALSE(IsBlocked(number)) << number;
}

TEST_F(Signals, BlockedBeforeAttachingStayBlockedAfterFinishing) {
  vxmw_finish(&mw_);
  sigset_t hangup;
  sigemptyset(&hangup);
  sigaddset(&hangup, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &hangup, nullptr);
  mw_ = vxmw_init("vxmw_test");
  vxmw_finish(&mw_);
  EXPECT_TRUE(IsBlocked(SIGHUP));
  EXPECT_FALSE(IsBlocked(SIGTERM));
  pthread_sigmask(SIG_UNBLOCK, &hangup, nullptr);
}

// Attaches, is told to end, and is told again while it ends.
[[noreturn]] void EndWhileSignalsCome() {
  vxmw_t* mw = vxmw_init("vxmw_test");
  bool go_on = true;
  kill(getpid(), SIGTERM);
  const int result = vxmw_loop_while_timeout(mw, &go_on, 0);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) kill(getpid(), number);
  vxmw_finish(&mw);
  _exit(result == 0 ? kDone : EXIT_FAILURE);
}

TEST(SignalsAtTheEnd, DoNotChangeHowTheProcessEnds) {
  EXPECT_EXIT(EndWhileSignalsCome(), ExitedWithCode(kDone), "");
}

TEST_F(Signals, HaveTheirDefaultEffectAgainAfterFinishing) {
  EXPECT_EXIT(
      {
        vxmw_finish(&mw_);
        kill(getpid(), SIGTERM);
        _exit(kDone);
      },
      KilledBySignal(SIGTERM), "");
}

// Work that keeps the loop from running, for as long as nobody asks it to end.
bool IsGivenUpAfter(vxmw_t* mw, int number) {
  EXPECT_TRUE(vxmw::KeepAlive(mw));
  kill(getpid(), number);
  const auto deadline = std::chrono::steady_clock::now() + tests::kLimit;
  while (vxmw::KeepAlive(mw)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
  }
  return !vxmw::KeepAlive(mw);
}

TEST_F(Signals, OfTheEndLetLongWorkBeGivenUpBeforeTheyEndTheLoop) {
  for (const int number : {SIGTERM, SIGINT}) {
    EXPECT_TRUE(IsGivenUpAfter(mw_, number)) << number;
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(vxmw::KeepAlive(mw_)) << number;
  }
}

TEST_F(Signals, OfTheEndComeBeforeAllElseThatTheLoopHasToDo) {
  bool stopped_before = true;
  vxmw::TimerSource second(mw_, [&] { stopped_before = false; });
  vxmw::TimerSource first(mw_, [&] {
    kill(getpid(), SIGTERM);
    second.Arm(std::chrono::milliseconds(0));
  });
  first.Arm(std::chrono::milliseconds(0));
  EXPECT_EQ(Run(), 0);
  EXPECT_TRUE(stopped_before);
}

TEST_F(Signals, OfAHangupDoNotEndTheLoop) {
  bool ended = false;
  vxmw::TimerSource end(mw_, [&] {
    ended = true;
    vxmw::EndLoop(mw_, 0);
  });
  vxmw::TimerSource hang_up(mw_, [&] {
    kill(getpid(), SIGHUP);
    end.Arm(std::chrono::milliseconds(20));
  });
  hang_up.Arm(std::chrono::milliseconds(0));
  Run();
  EXPECT_TRUE(ended);
}

TEST_F(Signals, OfABrokenPipeAreAnErrorOfTheWrite) {
  std::array<int, 2> fds{};
  ASSERT_EQ(pipe(fds.data()), 0);
  close(fds[0]);
  EXPECT_EQ(write(fds[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  close(fds[1]);
}

volatile std::sig_atomic_t alarms = 0;

// A handler of the program itself interrupts the loop's wait.
TEST_F(Signals, OfTheProgramItselfDoNotEndTheLoop) {
  struct sigaction count{};
  struct sigaction before{};
  count.sa_handler = [](int) { alarms = alarms + 1; };
  sigaction(SIGALRM, &count, &before);
  const itimerval every_millisecond{{0, 1000}, {0, 1000}};
  const itimerval never{};
  setitimer(ITIMER_REAL, &every_millisecond, nullptr);
  bool waited = false;
  vxmw::TimerSource end(mw_, [&] {
    waited = true;
    vxmw::EndLoop(mw_, 0);
  });
  end.Arm(std::chrono::milliseconds(50));
  EXPECT_EQ(Run(), 0);
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_TRUE(waited);
  EXPECT_GT(alarms, 0);
}

}  // namespace
