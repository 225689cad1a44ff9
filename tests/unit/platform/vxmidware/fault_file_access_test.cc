// Who may write the fault file, and what is not taken for one.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "platform/vxmidware/src/fault_file.h"
#include "tests/unit/platform/vxmidware/fault_directory.h"

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using tests::Lines;
using tests::Told;

using FaultFileAccess = tests::FaultDirectory;

fs::perms AccessOf(const fs::path& file) { return fs::status(file).permissions(); }

TEST_F(FaultFileAccess, GivesItsGroupTheAccessThatItHasToTheDirectory) {
  const mode_t before = umask(0077);
  for (const auto& [directory, file] : {std::pair(02770, 0660),
                                        {0775, 0660},
                                        {0755, 0640},
                                        {0711, 0600},
                                        {0700, 0600},
                                        {0777, 0660}}) {
    fs::remove(File());
    ASSERT_EQ(chmod(directory_.c_str(), static_cast<mode_t>(directory)), 0);
    vxmw::AppendFault(directory_, "line");
    EXPECT_EQ(AccessOf(File()), fs::perms(file)) << std::oct << directory;
  }
  umask(before);
}

TEST_F(FaultFileAccess, KeepsTheAccessThatItHas) {
  vxmw::AppendFault(directory_, "line");
  fs::permissions(File(), fs::perms(0604));
  vxmw::AppendFault(directory_, "line");
  EXPECT_EQ(AccessOf(File()), fs::perms(0604));
}

TEST_F(FaultFileAccess, LeavesNothingElseBehind) {
  vxmw::AppendFault(directory_, "line");
  const fs::directory_iterator entries(directory_);
  EXPECT_EQ(std::distance(fs::begin(entries), fs::end(entries)), 1);
}

TEST_F(FaultFileAccess, MakesTheDirectoryItIsIn) {
  vxmw::AppendFault(directory_ / "made", "line");
  EXPECT_THAT(Lines(directory_ / "made" / "faults.jsonl"), ElementsAre("line"));
}

TEST_F(FaultFileAccess, MakesTheDirectoryWithTheAccessOfItsParentsGroup) {
  const mode_t before = umask(0077);
  ASSERT_EQ(chmod(directory_.c_str(), 02770), 0);
  vxmw::AppendFault(directory_ / "made", "line");
  umask(before);
  EXPECT_EQ(AccessOf(directory_ / "made"), fs::perms(02770));
}

TEST_F(FaultFileAccess, ThatCannotBeOpenedIsNamedOnStandardError) {
  fs::create_directory(File());
  EXPECT_THAT(Told(), AllOf(HasSubstr("kept"), HasSubstr(File().string())));
}

TEST_F(FaultFileAccess, SaysOnceWhyFaultsCannotBeRecorded) {
  fs::create_directory(File());
  EXPECT_THAT(Told(), HasSubstr(File().string()));
  EXPECT_THAT(Told(), AllOf(HasSubstr("kept"), Not(HasSubstr(File().string()))));
  fs::remove(File());
  EXPECT_EQ(Told(), "");
  fs::remove(File());
  fs::create_directory(File());
  EXPECT_THAT(Told(), HasSubstr(File().string()));
}

TEST_F(FaultFileAccess, IsNotReachedThroughASymbolicLink) {
  std::ofstream(directory_ / "other") << "kept\n";
  fs::create_symlink("other", File());
  EXPECT_THAT(Told(), HasSubstr(File().string()));
  EXPECT_THAT(Lines(directory_ / "other"), ElementsAre("kept"));
}

TEST_F(FaultFileAccess, IsNoDanglingSymbolicLink) {
  fs::create_symlink("other", File());
  EXPECT_THAT(Told(), HasSubstr(File().string()));
  EXPECT_FALSE(fs::exists(directory_ / "other"));
}

// Opened without a limit, it would wait for a reader; written to, for that reader to read.
TEST_F(FaultFileAccess, IsNoFifo) {
  ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
  EXPECT_THAT(Told(), HasSubstr(File().string()));
  const int reader = open(File().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_THAT(Told(), HasSubstr("is no regular file"));
  close(reader);
}

TEST_F(FaultFileAccess, WithTooLongAPathIsNamedOnStandardError) {
  for (const std::size_t size : {256U, 5000U}) {
    setenv("VXMW_STATE_DIR", (directory_ / std::string(size, 'x')).c_str(), 1);
    EXPECT_THAT(Told(), AllOf(HasSubstr("kept"), HasSubstr("xxx")));
  }
}

}  // namespace
