// What is saved, what is restored, and in which order.

#include "save/saver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "tests/unit/save/scripted_store.h"
#include "tests/unit/save/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using save::Source;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(Decide, TheRunningConfigurationCountsAsLongAsItsSharedMemoryLives) {
  EXPECT_EQ(save::Decide(true, true), Source::kRunning);
  EXPECT_EQ(save::Decide(true, false), Source::kRunning);
}

TEST(Decide, ThePendingOneCountsUnlessCommitsWereMadeWithoutIt) {
  EXPECT_EQ(save::Decide(false, true), Source::kPending);
  EXPECT_EQ(save::Decide(false, false), Source::kConflict);
}

class SaverTest : public ::testing::Test {
 protected:
  void Start() {
    saver_ = std::make_unique<save::Saver>(
        store_, file_, [this](const std::string& text) { reports_.push_back(text); });
    saver_->Start();
  }

  // The processes were killed or the power was cut.
  void Restart(const std::string& generation) {
    store_.generation = generation;
    Start();
  }

  void SetPending(const std::string& configuration, const std::string& generation = "g1") {
    file_.Write({generation, configuration});
  }
  std::optional<std::string> PendingConfiguration() {
    const auto pending = file_.Read();
    if (!pending) return std::nullopt;
    return pending->configuration;
  }

  tests::TemporaryDirectory directory_;
  tests::ScriptedStore store_;
  save::PendingFile file_{directory_.path() / "pending"};
  std::vector<std::string> reports_;
  std::unique_ptr<save::Saver> saver_;
};

TEST_F(SaverTest, WritesNothingWhenTheStartupDatastoreIsInStep) {
  store_.running = store_.startup = "{1}";
  Start();
  EXPECT_TRUE(saver_->settled());
  EXPECT_FALSE(saver_->Save());
  saver_->Settle();
  EXPECT_EQ(PendingConfiguration(), std::nullopt);
  EXPECT_EQ(store_.writes, 0);
  EXPECT_THAT(reports_, IsEmpty());
}

TEST_F(SaverTest, SavesAtItsStartWhatWasCommittedBefore) {
  store_.running = "{2}";
  store_.startup = "{1}";
  Start();
  EXPECT_EQ(PendingConfiguration(), "{2}");
  saver_->Settle();
  EXPECT_EQ(store_.startup, "{2}");
}

TEST_F(SaverTest, BringsACommitToThePendingFileAndThenToTheStartupDatastore) {
  Start();
  store_.running = "{1}";
  EXPECT_TRUE(saver_->Save());
  EXPECT_FALSE(saver_->settled());
  EXPECT_EQ(PendingConfiguration(), "{1}");
  EXPECT_EQ(store_.startup, "");
  EXPECT_FALSE(saver_->Save());
  saver_->Settle();
  EXPECT_TRUE(saver_->settled());
  EXPECT_EQ(store_.startup, "{1}");
  EXPECT_EQ(PendingConfiguration(), std::nullopt);
}

TEST_F(SaverTest, SavesACommitThatGoesBackToWhatWasBefore) {
  store_.running = store_.startup = "{1}";
  Start();
  store_.running = "{2}";
  EXPECT_TRUE(saver_->Save());
  store_.running = "{1}";
  EXPECT_TRUE(saver_->Save());
  EXPECT_EQ(PendingConfiguration(), "{1}");
}

TEST_F(SaverTest, SavesAConfigurationThatWasEmptied) {
  store_.running = store_.startup = "{1}";
  Start();
  store_.running = "{}";
  EXPECT_TRUE(saver_->Save());
  saver_->Settle();
  EXPECT_EQ(store_.startup, "{}");
}

TEST_F(SaverTest, KeepsWhatIsPendingUntilTheStartupDatastoreTakesIt) {
  Start();
  store_.running = "{1}";
  saver_->Save();
  store_.full = true;
  EXPECT_THROW(saver_->Settle(), datastore::Error);
  EXPECT_EQ(PendingConfiguration(), "{1}");
  EXPECT_FALSE(saver_->settled());
  store_.full = false;
  saver_->Settle();
  EXPECT_EQ(store_.startup, "{1}");
}

TEST_F(SaverTest, KeepsWhatIsPendingWhenTheStartupDatastoreIsCutShortWithoutAWord) {
  Start();
  store_.running = "{1}";
  saver_->Save();
  store_.cut_short = true;
  EXPECT_THROW(saver_->Settle(), datastore::Error);
  EXPECT_EQ(PendingConfiguration(), "{1}");
}

TEST_F(SaverTest, SavesNothingOfADatastoreThatIsLost) {
  store_.running = store_.startup = "{1}";
  Start();
  store_.lost = true;
  store_.running = "{}";
  EXPECT_THROW(saver_->Save(), save::DatastoreLost);
  EXPECT_EQ(PendingConfiguration(), std::nullopt);
}

TEST_F(SaverTest, RestoresWhatWasPendingWhenThePowerWasCut) {
  SetPending("{2}");
  store_.running = store_.startup = "{half of it}";
  Restart("g2");
  EXPECT_EQ(store_.running, "{2}");
  saver_->Settle();
  EXPECT_EQ(store_.startup, "{2}");
  EXPECT_EQ(PendingConfiguration(), std::nullopt);
  EXPECT_THAT(reports_, ElementsAre("the configuration that was saved last is restored"));
}

TEST_F(SaverTest, RestoresWhatWasPendingAlthoughTheStartupDatastoreCannotBeRead) {
  SetPending("{2}");
  store_.damaged = true;
  Restart("g2");
  EXPECT_EQ(store_.running, "{2}");
  saver_->Settle();
  EXPECT_EQ(store_.startup, "{2}");
}

TEST_F(SaverTest, KnowsItsOwnRunningDatastoreAfterItRestoredIt) {
  SetPending("{2}");
  store_.running = store_.startup = "{1}";
  Restart("g2");
  store_.running = "{3}";  // and the saver is killed before it sees that
  Start();
  EXPECT_EQ(store_.running, "{3}");
  EXPECT_EQ(PendingConfiguration(), "{3}");
}

TEST_F(SaverTest, PutsNoOlderSaveOverANewerCommit) {
  SetPending("{2}");
  store_.startup = "{1}";
  store_.running = "{3}";
  Restart("g1");
  EXPECT_EQ(store_.running, "{3}");
  EXPECT_EQ(PendingConfiguration(), "{3}");
  EXPECT_THAT(reports_, IsEmpty());
}

TEST_F(SaverTest, PutsNoOlderSaveOverACommitThatWentBackToTheStartupData) {
  SetPending("{2}");
  store_.startup = store_.running = "{1}";
  Restart("g1");
  EXPECT_EQ(store_.running, "{1}");
  EXPECT_EQ(PendingConfiguration(), std::nullopt);
}

TEST_F(SaverTest, SetsAsideWhatWasPendingWhenCommitsWereMadeWithoutIt) {
  SetPending("{2}");
  store_.startup = "{1}";
  store_.running = "{3}";
  Restart("g2");
  EXPECT_EQ(store_.running, "{3}");
  EXPECT_EQ(PendingConfiguration(), "{3}");
  EXPECT_THAT(reports_, ElementsAre(HasSubstr("pending.lost")));
  EXPECT_EQ(save::PendingFile(file_.path().string() + ".lost").Read()->configuration, "{2}");
}

TEST_F(SaverTest, SetsAsideWhatTheModelsRefuse) {
  SetPending("{2}");
  store_.startup = store_.running = "{1}";
  store_.refuses = true;
  Restart("g2");
  EXPECT_EQ(store_.running, "{1}");
  EXPECT_THAT(reports_, ElementsAre(HasSubstr("the models have changed")));
  EXPECT_TRUE(fs::exists(file_.path().string() + ".lost"));
}

TEST_F(SaverTest, SettlesAfterAKillBetweenStartupDatastoreAndPendingFile) {
  SetPending("{2}");
  store_.startup = store_.running = "{2}";
  Restart("g2");
  EXPECT_TRUE(saver_->settled());
  EXPECT_EQ(PendingConfiguration(), std::nullopt);
  EXPECT_THAT(reports_, IsEmpty());
}

TEST_F(SaverTest, RestoresAlsoWhenTheDiskIsFull) {
  SetPending("{2}");
  store_.startup = store_.running = "{1}";
  fs::create_symlink("/dev/full", file_.path().string() + ".new");
  Restart("g2");
  EXPECT_EQ(store_.running, "{2}");
  EXPECT_EQ(PendingConfiguration(), "{2}");
}

}  // namespace
