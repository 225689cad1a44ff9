// The fault file under trouble: processes at once, no room, no way in.

#include "platform/vxmidware/src/fault_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

#include "tests/support/loop.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

class FaultFile : public ::testing::Test {
 protected:
  FaultFile() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    setenv("VXMW_STATE_DIR", directory_.c_str(), 1);
  }
  ~FaultFile() override {
    unsetenv("VXMW_STATE_DIR");
    fs::remove_all(directory_);
  }

  static std::vector<std::string> Lines(const fs::path& file) {
    std::ifstream in(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  fs::path File() const { return directory_ / "faults.jsonl"; }
  fs::path Older() const { return directory_ / "faults.jsonl.1"; }

  fs::path directory_;
};

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
    EXPECT_THAT(lines, SizeIs(kBound / kLineSize));
    const auto rest = Lines(directory / "faults.jsonl");
    lines.insert(lines.end(), rest.begin(), rest.end());
    std::sort(lines.begin(), lines.end());
    ASSERT_THAT(lines, SizeIs(kProcesses * kLines));
    for (int line = 0; line < kProcesses * kLines; ++line) {
      EXPECT_EQ(lines[static_cast<std::size_t>(line)], std::to_string(1000 + line));
    }
  }
}

// Whether `process` waits for a lock; false as well when it ended without.
bool WaitsForALock(pid_t process) {
  const auto deadline = std::chrono::steady_clock::now() + tests::kLimit;
  const std::string own = " " + std::to_string(process) + " ";
  while (std::chrono::steady_clock::now() < deadline) {
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
      if (line.find("->") != std::string::npos && line.find(own) != std::string::npos) return true;
    }
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT);
    if (ended.si_pid == process) return false;
    sched_yield();
  }
  return false;
}

TEST_F(FaultFile, IsWrittenByOneProcessAtATime) {
  const int lock = open((directory_ / "faults.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const pid_t writer = fork();
  if (writer == 0) {
    close(lock);
    vxmw::AppendFault(directory_, "line");
    _exit(EXIT_SUCCESS);
  }
  EXPECT_TRUE(WaitsForALock(writer));
  EXPECT_FALSE(fs::exists(File()));
  flock(lock, LOCK_UN);
  close(lock);
  int status = -1;
  EXPECT_EQ(waitpid(writer, &status, 0), writer);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(Lines(File()), ElementsAre("line"));
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

TEST_F(FaultFile, IsReadByOthersButLockedByItsOwnerOnly) {
  umask(022);
  vxmw::AppendFault(directory_, "line");
  EXPECT_EQ(fs::status(File()).permissions(), fs::perms(0644));
  EXPECT_EQ(fs::status(directory_ / "faults.lock").permissions(), fs::perms(0600));
}

TEST_F(FaultFile, MakesTheDirectoryItIsIn) {
  vxmw::AppendFault(directory_ / "made", "line");
  EXPECT_THAT(Lines(directory_ / "made" / "faults.jsonl"), ElementsAre("line"));
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
  EXPECT_THAT(Lines(File()), ElementsAre("before"));
  vxmw::AppendFault(directory_, "after");
  EXPECT_THAT(Lines(File()), ElementsAre("before", "after"));
}

TEST_F(FaultFile, ThatCannotBeOpenedIsNamedOnStandardError) {
  fs::create_directory(File());
  ::testing::internal::CaptureStderr();
  vxmw_gen_fault(0, "f", "p", 1, "kept");
  const std::string told = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(told, HasSubstr("kept"));
  EXPECT_THAT(told, HasSubstr(File().string()));
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
