#include "save/pending_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

#include "tests/unit/save/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using save::Pending;

const Pending kOne = {"boot:1:2:3.4", R"({"a":1})"};
const Pending kOther = {"boot:1:9:3.4", "{\"a\":\n2}"};

class PendingFileTest : public ::testing::Test {
 protected:
  std::size_t CountFiles() const {
    const fs::directory_iterator files(directory_.path());
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }

  tests::TemporaryDirectory directory_;
  save::PendingFile file_{directory_.path() / "pending"};
};

TEST_F(PendingFileTest, YieldsWhatWasWrittenLast) {
  EXPECT_EQ(file_.Read(), std::nullopt);
  file_.Write(kOne);
  EXPECT_EQ(file_.Read(), kOne);
  file_.Write(kOther);
  EXPECT_EQ(file_.Read(), kOther);
  EXPECT_EQ(CountFiles(), 1U);
}

TEST_F(PendingFileTest, IsNoneOnceItIsRemoved) {
  file_.Write(kOne);
  file_.Remove();
  EXPECT_EQ(file_.Read(), std::nullopt);
  EXPECT_EQ(CountFiles(), 0U);
  file_.Remove();
}

TEST_F(PendingFileTest, IsNoneUnlessItIsWhole) {
  file_.Write(kOne);
  const std::string whole = tests::Content(file_.path());
  for (std::size_t size = 0; size < whole.size(); ++size) {
    std::ofstream(file_.path(), std::ios::trunc) << whole.substr(0, size);
    EXPECT_EQ(file_.Read(), std::nullopt) << size;
  }
  std::ofstream(file_.path(), std::ios::trunc) << whole << "x";
  EXPECT_EQ(file_.Read(), std::nullopt);
  std::ofstream(file_.path(), std::ios::trunc) << "another program 1 g 0\n";
  EXPECT_EQ(file_.Read(), std::nullopt);
}

TEST_F(PendingFileTest, StaysWhatItWasWhenTheNextCannotBeWritten) {
  file_.Write(kOne);
  fs::create_directory(file_.path().string() + ".new");
  EXPECT_THROW(file_.Write(kOther), std::system_error);
  EXPECT_EQ(file_.Read(), kOne);
}

TEST_F(PendingFileTest, LeavesNothingBehindOnAFullDisk) {
  const save::PendingFile file("/dev/full/pending");
  EXPECT_THROW(file.Write(kOne), std::system_error);
  file_.Write(kOne);
  // What cannot be written takes no room.
  fs::create_symlink("/dev/full", file_.path().string() + ".new");
  EXPECT_THROW(file_.Write(kOther), std::system_error);
  EXPECT_EQ(file_.Read(), kOne);
  EXPECT_EQ(CountFiles(), 1U);
}

TEST_F(PendingFileTest, IsForItsOwnerAlone) {
  file_.Write(kOne);
  EXPECT_EQ(fs::status(file_.path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(PendingFileTest, IsKeptBesideWhenItIsSetAside) {
  file_.Write(kOne);
  const fs::path copy = file_.SetAside();
  EXPECT_EQ(file_.Read(), std::nullopt);
  EXPECT_EQ(save::PendingFile(copy).Read(), kOne);
}

}  // namespace
