// The datastore goes away, or its models change, under a running adapter.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <confd_cdb.h>
#include <confd_lib.h>
#include <vxconfd/vxconfd.h>
#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string Interfaces(const std::string& list) {
  return R"({ "vx-config:config": { "vx-interface:interface": { "l3": [ )" + list + " ] } } }";
}

std::string Interface(int name, int vlan) {
  return R"({ "name": ")" + std::to_string(name) + R"(", "lower-layer-if": { "vlan": )" +
         std::to_string(vlan) + " } }";
}

class VlanHandler : public vxconfd::ConfigHandler {
 public:
  VlanHandler() {
    points_.push_back({3, 0, "/config/interface/l3/lower-layer-if/vlan", 0,
                       [this](auto* kp, auto op, auto* /*before*/, auto* after) {
                         char path[256] = {};
                         confd_pp_kpath(path, sizeof(path), kp);
                         const int vlan = op == MOP_VALUE_SET ? CONFD_GET_INT32(after) : 0;
                         events.push_back(std::string(path).substr(21, 1) + "=" +
                                          std::to_string(vlan));
                         return ITER_RECURSE;
                       }});
    points_.push_back({3, 0, "/config/interface/l3", 0, [this](auto* kp, auto op, auto...) {
                         char path[256] = {};
                         confd_pp_kpath(path, sizeof(path), kp);
                         if (op == MOP_DELETED) {
                           events.push_back("deleted " + std::string(path).substr(21, 1));
                         }
                         return ITER_CONTINUE;
                       }});
  }

  void ConfdConnected(ELEM_CONFD_PHASE_ET /*phase*/) override { events.emplace_back("connected"); }
  void ConfdDisconnected() override { events.emplace_back("disconnected"); }
  void LoadInitialConfig() override { events.emplace_back("load"); }
  void ApplyInitialConfig() override { events.emplace_back("apply"); }
  void StartCommit() override {}
  void ApplyCommitConfig() override {}

  std::vector<std::string> events;
};

class LostDatastoreTest : public ::testing::Test {
 protected:
  void Start(const std::string& configuration) {
    repository_.InstallModelsWithConfiguration(configuration);
    Connect();
  }

  void Connect() {
    adapter_.AddConfigHandler(&handler_);
    adapter_.Init(0);
    handler_.events.clear();
  }

  void Commit(const std::string& json) {
    EXPECT_TRUE(tests::ServeWhile(mw_.get(), [&] { repository_.Edit(json); }));
  }

  bool RunUntilHeard(const std::string& event) {
    return tests::RunUntil(mw_.get(), [&] {
      return std::find(handler_.events.begin(), handler_.events.end(), event) !=
             handler_.events.end();
    });
  }

  fs::path Repository() const { return repository_.directory() / "sysrepo"; }

  std::string Faults() const {
    std::ifstream file(repository_.directory() / "faults.jsonl");
    return {std::istreambuf_iterator<char>(file), {}};
  }

  int CountInterfaces() {
    const VxConfdCdbSession session(&adapter_, CDB_RUNNING, true);
    return cdb_num_instances(session.Socket(), "/config/interface/l3");
  }

  struct Finish {
    void operator()(vxmw_t* mw) const { vxmw_finish(&mw); }
  };

  tests::PrivateRepository repository_;
  std::unique_ptr<vxmw_t, Finish> mw_{vxmw_init("lost_datastore_test")};
  VlanHandler handler_;
  vxconfd::AppInterface adapter_{mw_.get(), nullptr, "lost_datastore_test", ELEM_CONFD_PHASE_2};
};

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
  EXPECT_THAT(Faults(), HasSubstr("connection to the configuration database lost"));
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
