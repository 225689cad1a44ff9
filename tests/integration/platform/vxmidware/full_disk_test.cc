// Faults on a disk without room: a small file system in a mount namespace of the test's own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include <vxmw/vxmw.h>

#include "tests/integration/platform/vxmidware/fault_users.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using tests::Lines;

class FullDisk : public ::testing::Test {
 protected:
  FullDisk() {
    std::array<char, 32> name{"/tmp/vxi.XXXXXX"};
    directory_ = mkdtemp(name.data());
    EXPECT_EQ(unshare(CLONE_NEWNS), 0);
    EXPECT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    EXPECT_EQ(mount("vx", directory_.c_str(), "tmpfs", 0, "size=64k"), 0);
    setenv("VXMW_STATE_DIR", directory_.c_str(), 1);
    setenv("VXMW_SYSLOG_SOCKET", (directory_ / "nowhere").c_str(), 1);
  }
  ~FullDisk() override {
    umount(directory_.c_str());
    fs::remove_all(directory_);
  }

  void Fill() const {
    std::ofstream filler(directory_ / "filler");
    while (filler << std::string(1024, 'x') << std::flush) {
    }
  }

  // What standard error gets of a fault.
  static std::string Raise() {
    ::testing::internal::CaptureStderr();
    vxmw_gen_fault(0, "f", "p", 1, "kept");
    return ::testing::internal::GetCapturedStderr();
  }

  fs::path directory_;
};

TEST_F(FullDisk, TakesNoPartOfARecord) {
  EXPECT_EQ(Raise(), "");
  Fill();
  std::size_t taken = 1;
  std::string told;
  while ((told = Raise()).empty()) ++taken;  // the last block has room
  EXPECT_THAT(told, HasSubstr("No space left"));
  const std::string again = Raise();
  EXPECT_THAT(again, HasSubstr("kept"));
  EXPECT_THAT(again, Not(HasSubstr("No space left")));
  fs::remove(directory_ / "filler");
  EXPECT_EQ(Raise(), "");
  const auto lines = Lines(directory_ / "faults.jsonl");
  EXPECT_EQ(lines.size(), taken + 1);
  for (const std::string& line : lines) EXPECT_EQ(nlohmann::json::parse(line)["text"], "kept");
}

}  // namespace
