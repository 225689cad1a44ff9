// Deliveries that take long: nobody waits for them, nothing is lost, and the process can be ended.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
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
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Table = std::map<int, int>;  // VLANs by interface

// Interfaces of a commit that is delivered from the loop.
constexpr int kMany = 600;

std::string Vlan(int interface) {
  return "/vx-config:config/vx-interface:interface/l3[name='" + std::to_string(interface) +
         "']/lower-layer-if/vlan";
}

void SetMany(tests::Committer& committer, int vlan) {
  for (int i = 1; i <= kMany; ++i) committer.Set(Vlan(i), std::to_string(vlan));
}

// Builds a table of nothing but the reports, and checks that a session reads what is reported.
class TableHandler : public vxconfd::ConfigHandler {
 public:
  TableHandler() {
    points_.push_back(
        {3, 0, "/config/interface/l3/lower-layer-if/vlan", 0,
         [this](auto* kp, auto op, auto* /*before*/, auto* after) { return Take(kp, op, after); }});
  }

  void LoadInitialConfig() override {}
  void ApplyInitialConfig() override {}
  void StartCommit() override { changes = 0; }
  void ApplyCommitConfig() override { applied.push_back(changes); }

  Table table;
  std::vector<int> applied;    // the changes of each commit that was delivered to its end
  int changes = 0;             // of this commit
  std::function<void()> step;  // in each change; may be empty

 private:
  confd_iter_ret Take(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* after) {
    ++changes;
    const auto* const name = reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&kp->v[2][0]));
    const int vlan = op == MOP_VALUE_SET ? CONFD_GET_INT32(after) : 0;
    table[std::stoi(name)] = vlan;
    const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
    std::int32_t read = 0;
    EXPECT_EQ(cdb_get_int32(session.Socket(), &read, "/config/interface/l3{%s}/lower-layer-if/vlan",
                            name),
              CONFD_OK);
    EXPECT_EQ(read, vlan);
    if (step) step();
    return ITER_RECURSE;
  }
};

// The service manager's end of its socket.
class ServiceManager {
 public:
  ServiceManager() {
    // An abstract name: the first byte of the path is null.
    const std::string name = "long_delivery_test." + std::to_string(getpid());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(&address.sun_path[1], sizeof(address.sun_path) - 1);
    const auto size = offsetof(sockaddr_un, sun_path) + 1 + name.size();
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(size)), 0);
    setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    setenv("WATCHDOG_USEC", "60000000", 1);  // so the loop itself does not feed it meanwhile
  }
  virtual ~ServiceManager() {
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    close(fd_);
  }
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  // Whether the watchdog was fed since the last call.
  bool WasFed() const {
    bool fed = false;
    std::array<char, 256> buffer{};
    ssize_t size = 0;
    while ((size = recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
      fed |= std::string(buffer.data(), static_cast<std::size_t>(size)) == "WATCHDOG=1";
    }
    return fed;
  }

 private:
  int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

class LongDeliveryTest : public ::testing::Test {
 protected:
  LongDeliveryTest() {
    repository_.InstallModels();
    adapter_.AddConfigHandler(&handler_);
    adapter_.Init(0);
    // The tracker looks for commits that were missed right after it has connected.
    tests::RunFor(mw_.get(), milliseconds(500));
  }

  static std::future<void> CommitMany(int vlan) {
    return std::async(std::launch::async, [vlan] {
      tests::Committer committer;
      SetMany(committer, vlan);
      committer.Commit();
    });
  }

  static std::future<void> Commit(int interface, int vlan) {
    return std::async(std::launch::async, [interface, vlan] {
      tests::Committer committer;
      committer.Set(Vlan(interface), std::to_string(vlan));
      committer.Commit();
    });
  }

  static bool IsDone(const std::future<void>& task) {
    return task.wait_for(milliseconds(1)) == std::future_status::ready;
  }

  bool RunUntilApplied(std::size_t commits) {
    return tests::RunUntil(mw_.get(),
                           [this, commits] { return handler_.applied.size() >= commits; });
  }

  Table Read() {
    tests::Committer committer;
    Table table;
    for (int i = 1; i <= kMany; ++i) {
      const std::string vlan = committer.Read(Vlan(i));
      if (!vlan.empty()) table[i] = std::stoi(vlan);
    }
    return table;
  }

  tests::PrivateRepository repository_;
  const tests::Middleware mw_{"long_delivery_test"};
  TableHandler handler_;
  vxconfd::AppInterface adapter_{mw_.get(), nullptr, "long_delivery_test", ELEM_CONFD_PHASE_2};
};

TEST_F(LongDeliveryTest, ASmallCommitReturnsWhenItHasBeenDelivered) {
  std::atomic<bool> applied_before_return = false;
  EXPECT_TRUE(tests::ServeWhile(mw_.get(), [&] {
    Commit(1, 10).get();
    applied_before_return = handler_.applied.size() == 1;
  }));
  EXPECT_TRUE(applied_before_return);
  EXPECT_TRUE(vxmw::ConfigReady(mw_.get()));
}

TEST_F(LongDeliveryTest, ALargeCommitReturnsBeforeItHasBeenDelivered) {
  std::future<void> large = CommitMany(7);
  bool returned = false;
  bool ready = true;
  handler_.step = [&] {
    returned = returned || IsDone(large);
    ready = vxmw::ConfigReady(mw_.get());
  };
  EXPECT_TRUE(RunUntilApplied(1));
  EXPECT_TRUE(returned);
  EXPECT_FALSE(ready);
  EXPECT_THAT(handler_.applied, ElementsAre(kMany));
  EXPECT_TRUE(tests::RunUntil(mw_.get(), [this] { return vxmw::ConfigReady(mw_.get()); }));
}

TEST_F(LongDeliveryTest, OthersCommitDuringItWithoutWaitingForItAndAreDeliveredInTheirOrder) {
  std::future<void> large = CommitMany(7);
  std::future<void> others;
  int returned_after = kMany;
  handler_.step = [&] {
    if (handler_.changes == 1 && !others.valid()) {
      others = std::async(std::launch::async, [] {
        Commit(1, 11).get();
        CommitMany(8).get();
        Commit(1, 12).get();
      });
    }
    if (handler_.applied.empty() && returned_after == kMany && IsDone(others)) {
      returned_after = handler_.changes;
    }
  };
  EXPECT_TRUE(RunUntilApplied(4));
  EXPECT_LT(returned_after, kMany);
  EXPECT_THAT(handler_.applied, ElementsAre(kMany, 1, kMany, 1));
  EXPECT_EQ(handler_.table.at(1), 12);
  EXPECT_EQ(handler_.table, Read());
  large.get();
  others.get();
  tests::RunFor(mw_.get(), milliseconds(2500));
  EXPECT_THAT(handler_.applied, ElementsAre(kMany, 1, kMany, 1));
  EXPECT_EQ(repository_.Faults(), "");
}

TEST_F(LongDeliveryTest, EachCommitIsADeliveryOfItsOwn) {
  std::vector<std::size_t> applied;  // commits, when a delivery begins or is over
  const vxmw::DeliveryWatch watch(
      mw_.get(), [&](bool /*delivering*/) { applied.push_back(handler_.applied.size()); });
  std::future<void> large = CommitMany(7);
  std::future<void> other;
  handler_.step = [&] {
    if (handler_.changes == 1 && !other.valid()) other = Commit(1, 11);
  };
  EXPECT_TRUE(RunUntilApplied(2));
  EXPECT_THAT(applied, ElementsAre(0, 1, 1, 2));
  large.get();
  other.get();
}

TEST_F(LongDeliveryTest, ASignalEndsItAndTheLoop) {
  std::vector<bool> told;
  const vxmw::DeliveryWatch watch(mw_.get(), [&](bool delivering) { told.push_back(delivering); });
  std::future<void> large = CommitMany(7);
  std::promise<void> never;
  const std::future<void> end = never.get_future();
  handler_.step = [&] {
    if (handler_.changes == 5) kill(getpid(), SIGTERM);
    if (handler_.changes >= 5) IsDone(end);
  };
  bool go_on = true;
  EXPECT_EQ(vxmw_loop_while_timeout(mw_.get(), &go_on, 0), 0);
  EXPECT_LT(handler_.changes, kMany);
  EXPECT_GE(handler_.changes, 5);
  EXPECT_THAT(handler_.applied, IsEmpty());
  EXPECT_THAT(told, ElementsAre(true));  // a part of a commit is not the whole
  large.get();
}

class WatchedDeliveryTest : public ServiceManager, public LongDeliveryTest {};

TEST_F(WatchedDeliveryTest, FeedsTheWatchdog) {
  setenv("WATCHDOG_USEC", "20000", 1);
  std::future<void> large = CommitMany(7);
  int fed = 0;
  std::promise<void> never;
  const std::future<void> end = never.get_future();
  handler_.step = [&] {
    if (handler_.changes == 1) WasFed();  // by the loop, before
    if (fed < 3 && !IsDone(end) && WasFed()) ++fed;
  };
  EXPECT_TRUE(RunUntilApplied(1));
  EXPECT_EQ(fed, 3);
  large.get();
}

TEST_F(LongDeliveryTest, AnExceptionOfAHandlerComesOutOfTheLoop) {
  std::vector<bool> told;
  const vxmw::DeliveryWatch watch(mw_.get(), [&](bool delivering) { told.push_back(delivering); });
  std::future<void> large = CommitMany(7);
  handler_.step = [&] {
    if (handler_.changes == 5) throw std::out_of_range("from the handler");
  };
  EXPECT_THROW(tests::RunUntil(mw_.get(), [] { return false; }), std::out_of_range);
  EXPECT_EQ(handler_.changes, 5);
  EXPECT_THAT(told, ElementsAre(true));
  large.get();
}

TEST_F(LongDeliveryTest, ItsQueueIsCoveredByTheNextConnectionWhenTheDatastoreIsLost) {
  std::future<void> large = CommitMany(7);
  std::future<void> other;
  bool wiped = false;
  handler_.step = [&] {
    if (handler_.changes == 1 && !other.valid()) other = Commit(1, 11);
    if (!wiped && IsDone(other)) {
      wiped = true;
      fs::remove_all(repository_.directory() / "sysrepo");
      tests::PrivateRepository::RemoveSharedMemory();
    }
  };
  EXPECT_TRUE(tests::RunUntil(mw_.get(), [this] { return !adapter_.connected(); }));
  EXPECT_TRUE(wiped);
  handler_.step = nullptr;
  repository_.InstallModels();
  tests::Committer committer;
  SetMany(committer, 9);
  committer.Commit();
  EXPECT_TRUE(tests::RunUntil(mw_.get(), [this] { return vxmw::ConfigReady(mw_.get()); }));
  EXPECT_EQ(handler_.table, Read());
  large.get();
  other.get();
}

}  // namespace
