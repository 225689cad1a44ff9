// The datastore goes away, or its models change, under a running adapter.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <confd_cdb.h>
#include <confd_lib.h>
#include <vxconfd/vxconfd.h>
#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "tests/integration/platform/vxconfd/committer.h"
#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

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

  // The pipes of subscriptions, and the locks by which connections are known to live.
  std::set<std::string> DatastoreFiles() const {
    std::set<std::string> names;
    for (const auto& file : fs::recursive_directory_iterator(Repository())) {
      const std::string name = file.path().filename();
      if (name.starts_with("sr_evpipe") || name.ends_with(".lock")) names.insert(file.path());
    }
    return names;
  }

  // Another process commits; it is killed while it waits until the adapter takes the commit.
  void CommitUnservedAndKill(const std::string& json) {
    const fs::path edit = repository_.directory() / "killed.json";
    std::ofstream(edit) << json;
    const pid_t child = fork();
    if (child == 0) {
      const std::string option = "--edit=" + edit.string();
      execlp("sysrepocfg", "sysrepocfg", option.c_str(), "-d", "running", "-f", "json", nullptr);
      _exit(127);
    }
    for (const std::string pipe = (Repository() / "sr_evpipe1").string(); !HasBytes(pipe);) {
      std::this_thread::yield();
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  static bool HasBytes(const std::string& pipe) {
    const int fd = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    int bytes = 0;
    const bool known = fd >= 0 && ioctl(fd, FIONREAD, &bytes) == 0;
    close(fd);
    return known && bytes > 0;
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
