#include "protocol/saving/save_status.h"

#include <gtest/gtest.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/unit/save/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using dhcp_relay::saving::ReadSaveStatus;
using dhcp_relay::saving::SaveState;
using dhcp_relay::saving::SaveStatus;
using dhcp_relay::saving::StatusFile;

class SaveStatusTest : public ::testing::Test {
 protected:
  SaveStatus Read() const { return ReadSaveStatus(path_); }
  // In another process, as locks are seen there.
  bool CanStart() const {
    const pid_t child = fork();
    if (child == 0) {
      try {
        const StatusFile file(path_);
      } catch (const std::runtime_error&) {
        _exit(EXIT_FAILURE);
      }
      _exit(EXIT_SUCCESS);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
  }

  tests::TemporaryDirectory directory_;
  fs::path path_ = directory_.path() / "run" / "saver";
};

TEST_F(SaveStatusTest, TellsThatNoSaverRuns) { EXPECT_EQ(Read(), SaveStatus{}); }

TEST_F(SaveStatusTest, TellsWhatTheSaverPublished) {
  StatusFile file(path_);
  EXPECT_EQ(Read(), (SaveStatus{SaveState::kSaving, {}}));
  for (const SaveStatus& status :
       {SaveStatus{SaveState::kSaved, {}}, SaveStatus{SaveState::kSaving, {}},
        SaveStatus{SaveState::kFailed, "cannot write /a: No space left\non device"}}) {
    file.Publish(status);
    EXPECT_EQ(Read(), status);
  }
}

TEST_F(SaveStatusTest, TellsThatASaverHasEndedWhateverItsFileSays) {
  auto file = std::make_unique<StatusFile>(path_);
  file->Publish({SaveState::kSaved, {}});
  file.reset();
  EXPECT_TRUE(fs::exists(path_ / "status"));
  EXPECT_EQ(Read().state, SaveState::kNotRunning);
  // The next one has not said anything yet.
  file = std::make_unique<StatusFile>(path_);
  EXPECT_EQ(Read().state, SaveState::kSaving);
}

TEST_F(SaveStatusTest, LetsOneSaverRunAtATime) {
  auto file = std::make_unique<StatusFile>(path_);
  EXPECT_FALSE(CanStart());
  file.reset();
  EXPECT_TRUE(CanStart());
}

TEST_F(SaveStatusTest, CannotTellWhatItCannotUnderstand) {
  const StatusFile file(path_);
  std::ofstream(path_ / "status") << "dancing\n";
  EXPECT_EQ(Read().state, SaveState::kUnknown);
  EXPECT_FALSE(Read().good());
}

TEST_F(SaveStatusTest, CannotTellWhatItMayNotRead) {
  std::ofstream(directory_.path() / "file") << "x";
  EXPECT_EQ(ReadSaveStatus(directory_.path() / "file").state, SaveState::kUnknown);
}

// Else any user could take it and keep a saver from starting.
TEST_F(SaveStatusTest, KeepsTheLockFromOtherUsers) {
  const StatusFile file(path_);
  EXPECT_EQ(fs::status(path_ / "lock").permissions() & fs::perms::others_all, fs::perms::none);
}

TEST(RuntimeDirectory, IsTheOneThatTheEnvironmentNames) {
  setenv("DHCP_RELAY_SAVED_DIR", "/some/where", 1);
  EXPECT_EQ(dhcp_relay::saving::RuntimeDirectory(), "/some/where");
  setenv("DHCP_RELAY_SAVED_DIR", "", 1);
  EXPECT_EQ(dhcp_relay::saving::RuntimeDirectory(), "/run/dhcp-relay-saved");
}

}  // namespace
