// The fault file under trouble: processes at once, no room.

#include "platform/vxmidware/src/fault_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include <vxmw/vxmw.h>

#include "tests/unit/platform/vxmidware/fault_directory.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using tests::Lines;

using FaultFile = tests::FaultDirectory;

// All lines wait for the start, so that the processes meet where the file is moved on.
void AppendFromProcesses(const fs::path& directory, int processes, int lines, std::size_t bound) {
  std::array<int, 2> start{};
  ASSERT_EQ(pipe(start.data()), 0);
  for (int process = 0; process < processes; ++process) {
    if (fork() != 0) continue;
    close(start[1]);
    char none = 0;
    while (read(start[0], &none, 1) > 0) {
    }
    for (int line = 0; line < lines; ++line) {
      vxmw::AppendFault(directory, std::to_string(1000 + process * lines + line), bound);
    }
    _exit(EXIT_SUCCESS);
  }
  close(start[0]);
  close(start[1]);
  for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
}

TEST_F(FaultFile, LosesNothingWhenProcessesRenameItAtOnce) {
  constexpr int kProcesses = 4;
  constexpr int kLines = 6;
  constexpr int kRounds = 25;
  constexpr std::size_t kLineSize = 5;
  constexpr std::size_t kBound = kLineSize * kProcesses * kLines * 2 / 3;  // reached once
  for (int round = 0; round < kRounds; ++round) {
    const fs::path directory = directory_ / std::to_string(round);
    AppendFromProcesses(directory, kProcesses, kLines, kBound);
    std::vector<std::string> lines = Lines(directory / "faults.jsonl.1");
    EXPECT_THAT(lines, SizeIs(Ge(kBound / kLineSize)));  // who does not get the lock appends
    const auto rest = Lines(directory / "faults.jsonl");
    lines.insert(lines.end(), rest.begin(), rest.end());
    std::sort(lines.begin(), lines.end());
    ASSERT_THAT(lines, SizeIs(kProcesses * kLines));
    for (int line = 0; line < kProcesses * kLines; ++line) {
      EXPECT_EQ(lines[static_cast<std::size_t>(line)], std::to_string(1000 + line));
    }
  }
}

// Holds the lock on the file, as a process does that is stopped in the middle of a rotation.
class Lock {
 public:
  explicit Lock(const fs::path& file) : fd_(open(file.c_str(), O_RDWR | O_CLOEXEC)) {
    EXPECT_EQ(flock(fd_, LOCK_EX), 0);
  }
  ~Lock() { close(fd_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int fd_;
};

TEST_F(FaultFile, IsAppendedToWhileAnotherProcessHoldsTheLock) {
  vxmw::AppendFault(directory_, "1", 2);
  {
    const Lock lock(File());
    vxmw::AppendFault(directory_, "2", 2);
  }
  EXPECT_FALSE(fs::exists(Older()));
  vxmw::AppendFault(directory_, "3", 2);
  EXPECT_THAT(Lines(Older()), ElementsAre("1", "2"));
  EXPECT_THAT(Lines(File()), ElementsAre("3"));
}

TEST_F(FaultFile, IsBoundedWhileAnotherProcessHoldsTheLock) {
  vxmw::AppendFault(directory_, "1", 2);
  const Lock lock(File());
  for (std::size_t i = 1; i < vxmw::kMaxFaultFileGrowth; ++i) vxmw::AppendFault(directory_, "2", 2);
  EXPECT_THROW(vxmw::AppendFault(directory_, "3", 2), std::runtime_error);
  EXPECT_THAT(Lines(File()), SizeIs(vxmw::kMaxFaultFileGrowth));
}

TEST_F(FaultFile, IsRenamedOnlyBeyondItsMaximum) {
  vxmw::AppendFault(directory_, "123456789", 20);
  vxmw::AppendFault(directory_, "abcdefghi", 20);  // 20 bytes exactly
  EXPECT_FALSE(fs::exists(Older()));
  vxmw::AppendFault(directory_, "", 20);
  EXPECT_THAT(Lines(Older()), ElementsAre("123456789", "abcdefghi"));
  EXPECT_THAT(Lines(File()), ElementsAre(""));
}

TEST_F(FaultFile, KeepsOnePredecessor) {
  for (const char* line : {"first", "second", "third"}) vxmw::AppendFault(directory_, line, 1);
  EXPECT_THAT(Lines(Older()), ElementsAre("second"));
  EXPECT_THAT(Lines(File()), ElementsAre("third"));
}

TEST_F(FaultFile, IsBoundedForFaultsThatAreRaised) {
  std::ofstream(File()) << std::string(vxmw::kMaxFaultFileSize - 10, 'x') << "\n";
  vxmw_gen_fault(0, "f", "p", 1, "the next");
  EXPECT_EQ(fs::file_size(Older()), vxmw::kMaxFaultFileSize - 9);
  ASSERT_THAT(Lines(File()), SizeIs(1));
  EXPECT_THAT(Lines(File())[0], HasSubstr("the next"));
}

void LimitFileSizes(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);
}

// As when the disk is full: room for a part of the record.
TEST_F(FaultFile, HoldsNoPartOfARecordThatDidNotFit) {
  vxmw::AppendFault(directory_, "before");
  EXPECT_EXIT(
      {
        LimitFileSizes(20);
        vxmw_gen_fault(0, "f", "p", 1, "does not fit");
        _exit(EXIT_SUCCESS);
      },
      ::testing::ExitedWithCode(EXIT_SUCCESS), "");
  vxmw::AppendFault(directory_, "after");
  EXPECT_THAT(Lines(File()), ElementsAre("before", MatchesRegex(" *"), "after"));
}

TEST_F(FaultFile, NamesTheProgramItselfUntilItAttached) {
  vxmw_gen_fault(0, "f", "p", 1, "t");
  ASSERT_THAT(Lines(File()), SizeIs(1));
  EXPECT_EQ(nlohmann::json::parse(Lines(File())[0])["application"], program_invocation_short_name);
}

TEST_F(FaultFile, NamesTheApplicationAfterItFinished) {
  vxmw_t* mw = vxmw_init("some-app");
  vxmw_finish(&mw);
  vxmw_gen_fault(0, "f", "p", 1, "t");
  ASSERT_THAT(Lines(File()), SizeIs(1));
  EXPECT_EQ(nlohmann::json::parse(Lines(File())[0])["application"], "some-app");
}

// The earlier a handler is registered, the later it runs: this one after all objects are gone.
[[noreturn]] void ExitWithALateFault() {
  std::atexit([] { vxmw_gen_fault(0, "f", "p", 1, "late"); });
  vxmw_t* mw = vxmw_init("an-application-with-a-long-name");
  vxmw_finish(&mw);
  std::exit(EXIT_SUCCESS);
}

TEST_F(FaultFile, TakesAFaultOfAnExitHandler) {
  EXPECT_EXIT(ExitWithALateFault(), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
  ASSERT_THAT(Lines(File()), SizeIs(1));
  EXPECT_EQ(nlohmann::json::parse(Lines(File())[0])["application"],
            "an-application-with-a-long-name");
}

TEST_F(FaultFile, HoldsTheTimeInUtc) {
  setenv("TZ", "AAA-7", 1);
  const std::time_t before = std::time(nullptr);
  vxmw_gen_fault(0, "f", "p", 1, "t");
  const std::time_t after = std::time(nullptr);
  unsetenv("TZ");
  const auto hour = [](std::time_t time) {
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:", std::gmtime(&time));
    return std::string(text.data());
  };
  ASSERT_THAT(Lines(File()), SizeIs(1));
  const std::string time = nlohmann::json::parse(Lines(File())[0])["time"];
  EXPECT_THAT(time.substr(0, 14), ::testing::AnyOf(hour(before), hour(after)));
}

}  // namespace
