#include "save/startup_files.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "tests/unit/save/temporary_directory.h"

namespace {

namespace fs = std::filesystem;

class StartupFilesTest : public ::testing::Test {
 protected:
  StartupFilesTest() {
    setenv("SYSREPO_REPOSITORY_PATH", directory_.path().c_str(), 1);
    fs::create_directory(directory_.path() / "data");
  }

  fs::path Path(const std::string& name) const { return directory_.path() / "data" / name; }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name)) << text;
  }

  tests::TemporaryDirectory directory_;
};

TEST_F(StartupFilesTest, LeavesWholeFilesAsTheyAre) {
  Write("vx-config.startup", R"({"a":{"b":[1]}})");
  EXPECT_EQ(save::ResetDamagedStartupFiles(), 0);
  EXPECT_EQ(tests::Content(Path("vx-config.startup")), R"({"a":{"b":[1]}})");
}

TEST_F(StartupFilesTest, EmptiesThoseThatAreCutShort) {
  Write("cut.startup", R"({"a":{"b":[1])");
  Write("empty.startup", "");
  Write("zeros.startup", std::string(20, '\0'));
  fs::permissions(Path("cut.startup"), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(save::ResetDamagedStartupFiles(), 3);
  for (const char* name : {"cut.startup", "empty.startup", "zeros.startup"}) {
    EXPECT_EQ(tests::Content(Path(name)), "{}") << name;
  }
  EXPECT_EQ(fs::status(Path("cut.startup")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(StartupFilesTest, TouchesNothingElse) {
  Write("sysrepo.startup", "");
  Write("vx-config.running.perm", "");
  EXPECT_EQ(save::ResetDamagedStartupFiles(), 0);
  EXPECT_EQ(tests::Content(Path("sysrepo.startup")), "");
}

TEST_F(StartupFilesTest, NeedRoom) {
  save::RequireRoomForStartupFiles(1000);
  EXPECT_TRUE(fs::is_empty(directory_.path() / "data"));
  EXPECT_THROW(save::RequireRoomForStartupFiles(std::size_t{1} << 60U), std::system_error);
  EXPECT_TRUE(fs::is_empty(directory_.path() / "data"));
}

TEST_F(StartupFilesTest, AreSyncedAlsoWhereThereAreNone) {
  save::SyncStartupFiles();
  fs::remove(directory_.path() / "data");
  save::SyncStartupFiles();
  EXPECT_EQ(save::ResetDamagedStartupFiles(), 0);
}

}  // namespace
