// Event sources in the situations that their users meet: exceptions, moves, sources that destroy
// each other.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "tests/support/loop.h"

namespace {

using std::chrono::milliseconds;

static_assert(!std::is_copy_constructible_v<vxmw::IoSource>);
static_assert(!std::is_copy_constructible_v<vxmw::TimerSource>);

struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends.data()), 0); }
  ~Pipe() {
    close(ends[0]);
    close(ends[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void Fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
  int reader() const { return ends[0]; }

  std::array<int, 2> ends{};
};

class Sources : public ::testing::Test {
 protected:
  ~Sources() override { vxmw_finish(&mw_); }

  int Run() {
    bool go_on = true;
    return vxmw_loop_while_timeout(mw_, &go_on, 0);
  }

  vxmw_t* mw_ = vxmw_init("vxmw_test");
};

TEST_F(Sources, NeedALoopToRunIn) {
  bool go_on = true;
  EXPECT_EQ(vxmw_loop_while_timeout(nullptr, &go_on, 0), -EINVAL);
  EXPECT_EQ(vxmw_loop_while_timeout(mw_, nullptr, 0), -EINVAL);
}

TEST_F(Sources, DoNotRunWhenTheFlagIsFalseFromTheStart) {
  bool ran = false;
  bool go_on = false;
  vxmw::TimerSource timer(mw_, [&] { ran = true; });
  timer.Arm(milliseconds(0));
  EXPECT_EQ(vxmw_loop_while_timeout(mw_, &go_on, 0), 0);
  EXPECT_FALSE(ran);
}

TEST_F(Sources, ThatAreReadyDoNotRunAfterAnException) {
  const Pipe first;
  const Pipe second;
  first.Fill();
  second.Fill();
  int runs = 0;
  const auto fail = [&](std::uint32_t /*events*/) {
    ++runs;
    throw std::runtime_error("failed");
  };
  const vxmw::IoSource one(mw_, first.reader(), EPOLLIN, fail);
  const vxmw::IoSource other(mw_, second.reader(), EPOLLIN, fail);
  EXPECT_THROW(Run(), std::runtime_error);
  EXPECT_EQ(runs, 1);
}

TEST_F(Sources, CarryAnyExceptionThroughTheLoop) {
  vxmw::TimerSource timer(mw_, [] { throw 7; });
  timer.Arm(milliseconds(0));
  EXPECT_THROW(Run(), int);
}

TEST_F(Sources, CarryTheExceptionOfACallbackThatDestroyedItsSource) {
  std::unique_ptr<vxmw::TimerSource> timer;
  timer = std::make_unique<vxmw::TimerSource>(mw_, [&] {
    timer.reset();
    throw std::runtime_error("gone");
  });
  timer->Arm(milliseconds(0));
  EXPECT_THROW(Run(), std::runtime_error);
  EXPECT_EQ(timer, nullptr);
}

TEST_F(Sources, MayDestroyOneAnother) {
  const Pipe first;
  const Pipe second;
  first.Fill();
  second.Fill();
  int runs = 0;
  std::vector<std::unique_ptr<vxmw::IoSource>> sources;
  for (const Pipe* pipe : {&first, &second}) {
    sources.push_back(
        std::make_unique<vxmw::IoSource>(mw_, pipe->reader(), EPOLLIN, [&](std::uint32_t) {
          ++runs;
          sources.clear();
        }));
  }
  tests::RunUntil(mw_, [&] { return runs > 0; });
  vxmw::TimerSource end(mw_, [&] { vxmw::EndLoop(mw_, 0); });
  end.Arm(milliseconds(20));
  Run();
  EXPECT_EQ(runs, 1);
}

TEST_F(Sources, OfTheBackgroundRunWhileNoOtherIsReady) {
  const Pipe behind;
  const Pipe busy;
  behind.Fill();
  busy.Fill();
  constexpr int kTurns = 20;
  int turns = 0;
  int turns_before = -1;
  std::unique_ptr<vxmw::IoSource> front;
  const vxmw::IoSource background(
      mw_, behind.reader(), EPOLLIN,
      [&](std::uint32_t) {
        turns_before = turns;
        vxmw::EndLoop(mw_, 0);
      },
      vxmw::Priority::kBackground);
  front = std::make_unique<vxmw::IoSource>(mw_, busy.reader(), EPOLLIN, [&](std::uint32_t) {
    if (++turns == kTurns) front.reset();
  });
  Run();
  EXPECT_EQ(turns_before, kTurns);
}

TEST_F(Sources, RunAfterBeingMoved) {
  const Pipe pipe;
  bool told = false;
  bool rang = false;
  vxmw::IoSource io(mw_, pipe.reader(), EPOLLIN, [&](std::uint32_t) { told = true; });
  vxmw::TimerSource timer(mw_, [&] { rang = true; });
  vxmw::IoSource moved_io(std::move(io));
  vxmw::TimerSource moved_timer(std::move(timer));
  pipe.Fill();
  moved_timer.Arm(milliseconds(0));
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return told && rang; }));
}

TEST_F(Sources, AreReplacedByMoveAssignment) {
  const Pipe pipe;
  pipe.Fill();
  bool old_told = false;
  bool new_told = false;
  vxmw::IoSource io(mw_, pipe.reader(), EPOLLIN, [&](std::uint32_t) { old_told = true; });
  // One descriptor is watched once at a time, so the new source has one of its own.
  const Pipe other;
  other.Fill();
  io = vxmw::IoSource(mw_, other.reader(), EPOLLIN, [&](std::uint32_t) { new_told = true; });
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return new_told; }));
  EXPECT_FALSE(old_told);
}

TEST_F(Sources, TellOfThePeersEnd) {
  std::array<int, 2> fds{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds.data()), 0);
  std::uint32_t ready = 0;
  const vxmw::IoSource source(mw_, fds[0], EPOLLIN, [&](std::uint32_t events) { ready = events; });
  close(fds[1]);
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return (ready & EPOLLHUP) != 0; }));
  close(fds[0]);
}

TEST_F(Sources, CannotWatchARegularFile) {
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  try {
    const vxmw::IoSource source(mw_, fileno(file), EPOLLIN, [](std::uint32_t) {});
    ADD_FAILURE() << "a regular file was taken";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EPERM);
    EXPECT_THAT(error.what(), ::testing::HasSubstr("cannot watch a file descriptor"));
  }
  std::fclose(file);
}

TEST_F(Sources, RunATimerThatArmsItselfAgain) {
  int runs = 0;
  std::unique_ptr<vxmw::TimerSource> timer;
  timer = std::make_unique<vxmw::TimerSource>(mw_, [&] {
    if (++runs < 3) timer->Arm(milliseconds(1));
  });
  timer->Arm(milliseconds(1));
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return runs == 3; }));
}

TEST_F(Sources, RunATimerByItsLatestArm) {
  int runs = 0;
  vxmw::TimerSource timer(mw_, [&] { ++runs; });
  timer.Arm(std::chrono::hours(1));
  timer.Arm(milliseconds(1));
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return runs == 1; }));
}

TEST_F(Sources, RunATimerOfThePastAtOnce) {
  bool ran = false;
  vxmw::TimerSource timer(mw_, [&] { ran = true; });
  timer.Arm(milliseconds(-5));
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return ran; }));
}

TEST_F(Sources, RunTimersInTheOrderOfTheirTimes) {
  std::vector<int> order;
  vxmw::TimerSource later(mw_, [&] {
    order.push_back(2);
    vxmw::EndLoop(mw_, 0);
  });
  vxmw::TimerSource sooner(mw_, [&] { order.push_back(1); });
  later.Arm(milliseconds(30));
  sooner.Arm(milliseconds(1));
  Run();
  EXPECT_THAT(order, ::testing::ElementsAre(1, 2));
}

}  // namespace
