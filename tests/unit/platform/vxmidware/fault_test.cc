#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

#include "platform/vxmidware/src/fault_file.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

class Fault : public ::testing::Test {
 protected:
  Fault() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    setenv("VXMW_STATE_DIR", (directory_ / "state").c_str(), 1);
  }
  ~Fault() override { fs::remove_all(directory_); }

  std::vector<std::string> Lines(const std::string& file = "faults.jsonl") const {
    std::ifstream in(directory_ / "state" / file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  ordered_json Only() const {
    const auto lines = Lines();
    EXPECT_THAT(lines, SizeIs(1));
    return ordered_json::parse(lines.at(0));
  }

  fs::path directory_;
};

TEST_F(Fault, IsOneRecordWithItsPartsInOrder) {
  vxmw_t* mw = vxmw_init("some-app");
  vxmw_gen_fault(1, "main", "src/x/main", 21, "it broke\n\"badly\"");
  vxmw_finish(&mw);
  const ordered_json record = Only();
  std::vector<std::string> names;
  for (const auto& [name, value] : record.items()) names.push_back(name);
  EXPECT_THAT(names,
              ElementsAre("time", "application", "severity", "function", "path", "line", "text"));
  EXPECT_THAT(record["time"].get<std::string>(),
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{3}Z"));
  EXPECT_EQ(record["application"], "some-app");
  EXPECT_EQ(record["severity"], 1);
  EXPECT_EQ(record["function"], "main");
  EXPECT_EQ(record["path"], "src/x/main");
  EXPECT_EQ(record["line"], 21);
  EXPECT_EQ(record["text"], "it broke\n\"badly\"");
}

TEST_F(Fault, TakesBadUtf8AndNullTexts) {
  vxmw_gen_fault(0, nullptr, nullptr, 0, nullptr);
  vxmw_gen_fault(0, "f", "p", 1, "\xff\xfe");
  const auto lines = Lines();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(ordered_json::parse(lines[0])["text"], "");
  EXPECT_TRUE(ordered_json::accept(lines[1]));
}

TEST_F(Fault, LeavesErrnoAlone) {
  errno = EPERM;
  vxmw_gen_fault(0, "f", "p", 1, "t");
  EXPECT_EQ(errno, EPERM);
}

TEST_F(Fault, ThatCannotBeRecordedGoesToStandardError) {
  std::ofstream(directory_ / "state") << "a file in the directory's place";
  ::testing::internal::CaptureStderr();
  vxmw_gen_fault(0, "f", "p", 1, "lost otherwise");
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::HasSubstr("lost otherwise"));
}

TEST_F(Fault, FileIsBoundedAndItsPredecessorKept) {
  const fs::path state = directory_ / "state";
  vxmw::AppendFault(state, "1234567", 20);
  vxmw::AppendFault(state, "abcdefg", 20);
  vxmw::AppendFault(state, "ABCDEFG", 20);
  EXPECT_THAT(Lines("faults.jsonl.1"), ElementsAre("1234567", "abcdefg"));
  EXPECT_THAT(Lines(), ElementsAre("ABCDEFG"));
}

TEST_F(Fault, LargerThanTheBoundIsStillRecorded) {
  vxmw::AppendFault(directory_ / "state", std::string(100, 'x'), 20);
  EXPECT_THAT(Lines(), ElementsAre(std::string(100, 'x')));
}

TEST_F(Fault, OfSeveralProcessesAreAllThereAcrossTheBound) {
  constexpr int kProcesses = 4;
  constexpr int kRecords = 200;
  constexpr std::size_t kBound = 8 * kProcesses * kRecords * 2 / 3;  // is reached once
  for (int process = 0; process < kProcesses; ++process) {
    if (fork() != 0) continue;
    for (int i = 0; i < kRecords; ++i) {
      vxmw::AppendFault(directory_ / "state", std::string(7, static_cast<char>('a' + process)),
                        kBound);
    }
    _exit(0);
  }
  while (wait(nullptr) > 0) {
  }
  std::vector<std::string> lines = Lines("faults.jsonl.1");
  const auto rest = Lines();
  EXPECT_FALSE(rest.empty());
  lines.insert(lines.end(), rest.begin(), rest.end());
  EXPECT_THAT(lines, SizeIs(kProcesses * kRecords));
  for (const std::string& line : lines) EXPECT_EQ(line, std::string(7, line.at(0)));
}

TEST(Backtrace, GoesToStandardError) {
  ::testing::internal::CaptureStderr();
  vxmw_print_backtrace();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::HasSubstr(program_invocation_short_name));
}

}  // namespace
