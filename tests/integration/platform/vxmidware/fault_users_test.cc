// The fault file of a daemon, a manager and a state process, each under a user of its own.

#include "tests/integration/platform/vxmidware/fault_users.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include <vxmw/vxmw.h>

#include "platform/vxmidware/src/fault_file.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using tests::FaultUsers;
using tests::Lines;
using tests::Start;
using tests::Succeeds;
using tests::Users;

bool Append(const tests::User& user, const fs::path& directory, const std::string& line,
            std::size_t max_size = vxmw::kMaxFaultFileSize) {
  return Succeeds(Start(user, [&] { vxmw::AppendFault(directory, line, max_size); }));
}

TEST_F(FaultUsers, MayRaiseTheFirstFaultInAnyOrder) {
  std::array<std::size_t, 3> order{0, 1, 2};
  do {
    const std::string name =
        std::to_string(order[0]) + std::to_string(order[1]) + std::to_string(order[2]);
    const fs::path directory = Share(name);
    for (const std::size_t user : order) {
      EXPECT_TRUE(Append(Users()[user], directory, std::to_string(user))) << name;
    }
    EXPECT_THAT(
        Lines(directory / "faults.jsonl"),
        ElementsAre(std::to_string(order[0]), std::to_string(order[1]), std::to_string(order[2])));
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(FaultUsers, FindTheirGroupInTheFileOfEach) {
  for (const tests::User& user : Users()) {
    const fs::path directory = Share(std::to_string(user.id));
    ASSERT_TRUE(Append(user, directory, "line"));
    struct stat status{};
    ASSERT_EQ(stat((directory / "faults.jsonl").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, user.id);
    EXPECT_EQ(status.st_gid, tests::kCommonGroup);
    EXPECT_EQ(status.st_mode, S_IFREG | 0660U);
  }
}

// Without the set-group-ID bit a new file has the group of its maker.
TEST_F(FaultUsers, FindTheirGroupInADirectoryWithoutTheSetGroupIdBit) {
  ASSERT_EQ(chmod(directory_.c_str(), 0770), 0);
  for (const tests::User& user : Users()) EXPECT_TRUE(Append(user, directory_, "line"));
  EXPECT_THAT(All(), SizeIs(3));
}

TEST_F(FaultUsers, ShareADirectoryThatTheFirstOfThemMakes) {
  directory_ = directory_ / "made";
  for (const tests::User& user : Users()) EXPECT_TRUE(Append(user, directory_, "line"));
  EXPECT_THAT(All(), SizeIs(3));
}

TEST_F(FaultUsers, RotateTheFilesOfOneAnother) {
  for (std::size_t turn = 0; turn < 12; ++turn) {
    const std::string line = std::to_string(10 + turn);
    ASSERT_TRUE(Append(Users()[turn % 3], directory_, line, 6)) << turn;  // room for two
    const auto lines = Lines(directory_ / "faults.jsonl");
    EXPECT_THAT(lines, SizeIs(turn % 2 + 1));
    EXPECT_EQ(lines.back(), line);
  }
  EXPECT_THAT(Lines(directory_ / "faults.jsonl.1"), ElementsAre("18", "19"));
}

TEST_F(FaultUsers, LoseNothingWhenTheyRaiseFaultsAtOnce) {
  constexpr int kFaults = 150;
  const std::string text(4000, 't');  // more than the file holds
  setenv("VXMW_STATE_DIR", directory_.c_str(), 1);
  setenv("VXMW_SYSLOG_SOCKET", (top_ / "nowhere").c_str(), 1);
  std::vector<pid_t> processes;
  for (const tests::User& user : Users()) {
    processes.push_back(Start(user, [&] {
      for (int line = 0; line < kFaults; ++line) vxmw_gen_fault(0, "f", "p", line, text.c_str());
    }));
  }
  for (const pid_t process : processes) EXPECT_TRUE(Succeeds(process));
  EXPECT_FALSE(Lines(directory_ / "faults.jsonl.1").empty());
  std::vector<int> count(kFaults);
  for (const std::string& line : All()) {
    const auto record = nlohmann::json::parse(line);
    EXPECT_EQ(record["text"], text);
    ++count.at(record["line"]);
  }
  EXPECT_EQ(count, std::vector<int>(kFaults, 3));
}

// The file is there, and the directory is not to be written: it grows until one comes who may.
TEST_F(FaultUsers, WhoMayNotRotateAppend) {
  ASSERT_TRUE(Append(Users()[0], directory_, "1", 2));
  ASSERT_EQ(chmod(directory_.c_str(), 02750), 0);
  EXPECT_TRUE(Append(Users()[1], directory_, "2", 2));
  EXPECT_THAT(Lines(directory_ / "faults.jsonl"), ElementsAre("1", "2"));
  vxmw::AppendFault(directory_, "3", 2);
  EXPECT_THAT(Lines(directory_ / "faults.jsonl.1"), ElementsAre("1", "2"));
}

TEST_F(FaultUsers, OfAnotherGroupStayOutside) {
  EXPECT_FALSE(Append({61009, 61009, {}}, directory_, "line"));
  EXPECT_FALSE(fs::exists(directory_ / "faults.jsonl"));
}

}  // namespace
