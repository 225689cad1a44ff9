// A process that is stopped while it raises a fault, at every step of that.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "platform/vxmidware/src/fault_file.h"
#include "tests/integration/platform/vxmidware/fault_users.h"

namespace {

// The call at which this process stops itself, once.
std::string_view stop_at;

void Reach(std::string_view call) {
  if (call != stop_at) return;
  stop_at = "";
  raise(SIGSTOP);
}

}  // namespace

// In the C library's place.
extern "C" {

// Stops when it holds the lock.
int flock(int fd, int operation) noexcept {
  const auto result = static_cast<int>(syscall(SYS_flock, fd, operation));
  Reach("flock");
  return result;
}

int rename(const char* from, const char* to) noexcept {
  Reach("rename");
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int link(const char* from, const char* to) noexcept {
  Reach("link");
  return static_cast<int>(syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int fallocate(int fd, int mode, off_t offset, off_t size) {
  Reach("fallocate");
  return static_cast<int>(syscall(SYS_fallocate, fd, mode, offset, size));
}

ssize_t write(int fd, const void* data, size_t size) {
  Reach("write");
  return syscall(SYS_write, fd, data, size);
}

}  // extern "C"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using tests::Lines;
using tests::Start;
using tests::Succeeds;
using tests::User;
using tests::Users;

constexpr std::size_t kRoom = 12;           // lines of the file
constexpr std::size_t kMax = kRoom * 2;     // bytes
constexpr std::size_t kLinesOfAnother = 5;  // all writers together do not fill a second file

class StoppedWriter : public tests::FaultUsers {
 protected:
  void Append(const std::string& line, std::size_t count = 1, std::size_t max_size = kMax) const {
    for (; count > 0; --count) vxmw::AppendFault(directory_, line, max_size);
  }

  // A process of `user` that has stopped at `call` while it appended "s".
  pid_t StartStopped(const User& user, std::string_view call, std::size_t max_size = kMax) const {
    const pid_t process = Start(user, [&] {
      stop_at = call;
      Append("s", 1, max_size);
    });
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, WUNTRACED), process);
    EXPECT_TRUE(WIFSTOPPED(status)) << call;
    return process;
  }

  bool SucceedsWhenContinued(pid_t process) const {
    kill(process, SIGCONT);
    return Succeeds(process);
  }
};

class StoppedWriterAt : public StoppedWriter, public ::testing::WithParamInterface<const char*> {};

TEST_P(StoppedWriterAt, HoldsUpNoOtherAndNothingIsLost) {
  const std::string_view call = GetParam();
  const std::size_t before =
      call == "link" ? 0 : kRoom - (call == "flock" || call == "rename" ? 0 : 1);
  for (const User& stopped : Users()) {
    directory_ = Share(std::to_string(stopped.id));
    ASSERT_TRUE(Succeeds(Start(Users()[0], [&] { Append("b", before); })));
    const pid_t process = StartStopped(stopped, call);
    for (const User& other : Users()) {
      if (other.id == stopped.id) continue;
      EXPECT_TRUE(Succeeds(Start(other, [&] { Append("o", kLinesOfAnother); })));
    }
    EXPECT_TRUE(SucceedsWhenContinued(process));
    std::vector<std::string> lines = All();
    std::vector<std::string> expected(before, "b");
    expected.insert(expected.end(), 2 * kLinesOfAnother, "o");
    expected.emplace_back("s");
    std::sort(lines.begin(), lines.end());
    EXPECT_THAT(lines, ElementsAreArray(expected)) << stopped.id;
  }
}

INSTANTIATE_TEST_SUITE_P(EveryStep, StoppedWriterAt,
                         ::testing::Values("link", "flock", "rename", "fallocate", "write"),
                         [](const auto& test) { return std::string(test.param); });

// Stopped with the file open, which is gone when the process goes on.
TEST_F(StoppedWriter, FindsTheFileOfToday) {
  for (const char* call : {"fallocate", "write"}) {
    Append("b", 1, 2);
    const pid_t process = StartStopped(Users()[1], call, 100);
    Append("o", 3, 2);
    EXPECT_TRUE(SucceedsWhenContinued(process));
    EXPECT_EQ(Lines(directory_ / "faults.jsonl").back(), "s") << call;
  }
}

// A second rotation by it would take the records of the first.
TEST_F(StoppedWriter, RotatesNoFileOfOthers) {
  Append("b", kRoom);
  const pid_t process = StartStopped(Users()[1], "flock");
  const std::filesystem::path file = directory_ / "faults.jsonl";
  std::filesystem::rename(file, directory_ / "faults.jsonl.1");  // as an operator may
  Append("o");
  EXPECT_TRUE(SucceedsWhenContinued(process));
  EXPECT_THAT(Lines(directory_ / "faults.jsonl.1"),
              ElementsAreArray(std::vector<std::string>(kRoom, "b")));
  EXPECT_THAT(Lines(file), ElementsAre("o", "s"));
}

}  // namespace
