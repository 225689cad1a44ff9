// The datastore goes away, or its models change, under a running adapter.

#include "tests/integration/platform/vxconfd/lost_datastore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

#include <vxmw/event.h>

#include "tests/integration/platform/vxconfd/committer.h"

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using tests::Interface;
using tests::Interfaces;
using tests::LostDatastoreTest;

TEST_F(LostDatastoreTest, ConnectsAnewWhenSharedMemoryWasWiped) {
  Start(Interfaces(Interface(1, 10)));
  Commit(Interfaces(Interface(1, 11) + "," + Interface(2, 20)));
  handler_.events.clear();
  tests::PrivateRepository::RemoveSharedMemory();
  EXPECT_TRUE(RunUntilHeard("apply"));
  // Running data is gone with the shared memory; what the datastore starts with is left.
  EXPECT_THAT(handler_.events,
              ElementsAre("disconnected", "connected", "1=10", "deleted 2", "load", "apply"));
  EXPECT_TRUE(adapter_.connected());
  EXPECT_TRUE(vxmw::ConfigReady(mw_.get()));
  EXPECT_THAT(repository_.Faults(), HasSubstr("connection to the configuration database lost"));
  Commit(Interfaces(Interface(3, 30)));
  EXPECT_THAT(handler_.events, Contains("3=30"));
}

// The one who makes new shared memory is another process, which has committed before the adapter
// looks.
TEST_F(LostDatastoreTest, DeliversWhatOthersCommittedAfterSharedMemoryWasWiped) {
  Start(Interfaces(Interface(1, 10)));
  tests::PrivateRepository::RemoveSharedMemory();
  repository_.Edit(Interfaces(Interface(2, 20)));
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_THAT(handler_.events, ElementsAre("disconnected", "connected", "2=20", "load", "apply"));
  Commit(Interfaces(Interface(3, 30)));
  EXPECT_THAT(handler_.events, Contains("3=30"));
}

// Connects before the adapter does, and so gets the names that the adapter's connection had.
class FirstSubscriber {
 public:
  FirstSubscriber() {
    const auto ignore = [](auto...) -> int { return SR_ERR_OK; };
    if (sr_module_change_subscribe(committer_.session(), "vx-config", nullptr, ignore, nullptr, 0,
                                   SR_SUBSCR_DONE_ONLY, &subscription_) != SR_ERR_OK) {
      throw std::runtime_error("cannot subscribe");
    }
  }
  ~FirstSubscriber() { sr_unsubscribe(subscription_); }
  FirstSubscriber(const FirstSubscriber&) = delete;
  FirstSubscriber& operator=(const FirstSubscriber&) = delete;

  void Commit(const std::string& json) {
    committer_.Edit(json);
    committer_.Commit();
  }

 private:
  tests::Committer committer_;
  sr_subscription_ctx_t* subscription_ = nullptr;
};

TEST_F(LostDatastoreTest, LeavesTheFilesOfThoseAloneWhoConnectedBeforeIt) {
  Start(Interfaces(Interface(1, 10)));
  tests::PrivateRepository::RemoveSharedMemory();
  const FirstSubscriber first;
  const std::set<std::string> before = DatastoreFiles();
  EXPECT_THAT(before, Contains(HasSubstr("evpipe")));
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_THAT(DatastoreFiles(), IsSupersetOf(before));
}

// The event of a commit whose committer was killed is still there; what it points to is not.
TEST_F(LostDatastoreTest, TakesNoEventOfTheLostDatastore) {
  Start(Interfaces(Interface(1, 10)));
  CommitUnservedAndKill(Interfaces(Interface(1, 11)));
  tests::PrivateRepository::RemoveSharedMemory();
  FirstSubscriber first;
  first.Commit(Interfaces(Interface(2, 20)));
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_THAT(handler_.events, ElementsAre("disconnected", "connected", "2=20", "load", "apply"));
}

TEST_F(LostDatastoreTest, SaysSoWhileTheRepositoryIsGoneAndMakesNone) {
  Start(Interfaces(Interface(1, 10)));
  fs::remove_all(Repository());
  tests::PrivateRepository::RemoveSharedMemory();
  EXPECT_TRUE(RunUntilHeard("disconnected"));
  EXPECT_FALSE(adapter_.connected());
  EXPECT_FALSE(vxmw::ConfigReady(mw_.get()));
  const VxConfdCdbSession session(&adapter_, CDB_RUNNING, true);
  EXPECT_EQ(session.Socket(), -1);
  EXPECT_FALSE(fs::exists(Repository() / "yang"));
}

TEST_F(LostDatastoreTest, DeliversWhatIsDifferentInARepositoryThatTookThePlaceOfTheLost) {
  Start(Interfaces(Interface(1, 10) + "," + Interface(2, 20)));
  fs::remove_all(Repository());
  tests::PrivateRepository::RemoveSharedMemory();
  EXPECT_TRUE(RunUntilHeard("disconnected"));
  handler_.events.clear();
  repository_.InstallModelsWithConfiguration(Interfaces(Interface(1, 12) + "," + Interface(3, 30)));
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_THAT(handler_.events,
              ElementsAre("connected", "1=12", "3=30", "deleted 2", "load", "apply"));
  EXPECT_EQ(CountInterfaces(), 2);
}

TEST_F(LostDatastoreTest, NoticesARepositoryThatIsGoneAlthoughSharedMemoryIsThere) {
  Start(Interfaces(Interface(1, 10)));
  fs::remove_all(Repository());
  EXPECT_TRUE(RunUntilHeard("disconnected"));
}

TEST_F(LostDatastoreTest, NoticesARepositoryThatIsRenamedAndComesBack) {
  Start(Interfaces(Interface(1, 10)));
  const fs::path away = repository_.directory() / "away";
  fs::rename(Repository(), away);
  EXPECT_TRUE(RunUntilHeard("disconnected"));
  EXPECT_FALSE(adapter_.connected());
  EXPECT_THAT(repository_.Faults(), HasSubstr("the repository of the datastore is gone"));
  fs::rename(away, Repository());
  EXPECT_TRUE(RunUntilHeard("apply"));
  Commit(Interfaces(Interface(3, 30)));
  EXPECT_THAT(handler_.events, Contains("3=30"));
}

TEST_F(LostDatastoreTest, NoticesAnotherRepositoryInThePlaceOfItsOwn) {
  Start(Interfaces(Interface(1, 10)));
  const fs::path away = repository_.directory() / "away";
  fs::rename(Repository(), away);
  for (const char* part : {"yang", "data"}) {
    fs::create_directories(Repository() / part);
    fs::copy(away / part, Repository() / part);
  }
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_THAT(handler_.events, ElementsAre("disconnected", "connected", "load", "apply"));
  Commit(Interfaces(Interface(3, 30)));
  EXPECT_THAT(handler_.events, Contains("3=30"));
}

TEST_F(LostDatastoreTest, MakesNoDatastoreWhereNoneIs) {
  Connect();
  EXPECT_FALSE(adapter_.connected());
  EXPECT_FALSE(fs::exists(Repository()));
}

std::string NewerModel(const std::string& leaf) {
  std::ifstream file(VX_YANG_DIR "/vx-interface.yang");
  std::string text{std::istreambuf_iterator<char>(file), {}};
  text.insert(text.find("  revision "),
              "  revision 2030-01-01 {\n    description \"Newer.\";\n  }\n");
  text.insert(text.find("        container lower-layer-if"), leaf);
  return text;
}

TEST_F(LostDatastoreTest, FollowsModelsThatAreUpgraded) {
  Start(Interfaces(Interface(1, 10)));
  const fs::path model = repository_.directory() / "vx-interface.yang";
  std::ofstream(model) << NewerModel("        leaf note { type string; }\n");
  EXPECT_TRUE(tests::ServeWhile(mw_.get(), [&model] {
    const std::string upgrade = "sysrepoctl -s " VX_YANG_DIR " -U " + model.string();
    EXPECT_EQ(std::system(upgrade.c_str()), 0);
  }));
  EXPECT_THAT(handler_.events, IsEmpty());
  Commit(Interfaces(R"({ "name": "1", "note": "n", "lower-layer-if": { "vlan": 11 } })"));
  EXPECT_THAT(handler_.events, ElementsAre("1=11"));
  EXPECT_TRUE(adapter_.connected());
  const VxConfdCdbSession session(&adapter_, CDB_RUNNING, true);
  EXPECT_EQ(cdb_exists(session.Socket(), "/config/interface/l3{1}/note"), 1);
}

}  // namespace
