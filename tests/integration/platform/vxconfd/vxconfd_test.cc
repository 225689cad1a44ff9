// The configuration adapter on a real datastore.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <confd_cdb.h>
#include <vxconfd/vxconfd.h>
#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kR1[] = R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
    { "name": "r1" } ] } } })";

// Writes down what it is taken through.
class RecordingHandler : public vxconfd::ConfigHandler {
 public:
  RecordingHandler(std::string name, std::vector<std::string>& events)
      : name_(std::move(name)), events_(events) {
    points_.push_back(
        {3, 0, "/config/dhcp/relay", ITER_WANT_PREV, [](auto...) { return ITER_CONTINUE; }});
  }

  void ConfdConnected(ELEM_CONFD_PHASE_ET phase) override {
    Record("connected in phase " + std::to_string(phase));
  }
  void LoadInitialConfig() override {
    Record("load");
    if (throws) throw std::out_of_range("from the handler");
  }
  void ApplyInitialConfig() override { Record("apply"); }
  void StartCommit() override { Record("start"); }
  void ApplyCommitConfig() override { Record("commit"); }

  VxConfdInterface* interface() const { return interface_; }

  bool throws = false;

 private:
  void Record(const std::string& what) { events_.push_back(name_ + " " + what); }

  std::string name_;
  std::vector<std::string>& events_;
};

class VxconfdTest : public ::testing::Test {
 protected:
  VxconfdTest() : mw_(vxmw_init("vxconfd_test")) { Make(); }

  ~VxconfdTest() override {
    adapter_.reset();
    vxmw_finish(&mw_);
  }

  void Make() {
    adapter_ =
        std::make_unique<vxconfd::AppInterface>(mw_, nullptr, "vxconfd_test", ELEM_CONFD_PHASE_2);
    adapter_->AddConfigHandler(&first_);
    adapter_->AddConfigHandler(&second_);
  }

  // Makes a commit, and serves the loop until it has returned.
  void Commit(const std::string& json) {
    EXPECT_TRUE(tests::ServeWhile(mw_, [&] { repository_.Edit(json); }));
  }

  int CountRelays() {
    const VxConfdCdbSession session(adapter_.get(), CDB_RUNNING, true);
    return cdb_num_instances(session.Socket(), "/config/dhcp/relay");
  }

  tests::PrivateRepository repository_;
  vxmw_t* mw_;
  std::vector<std::string> events_;
  RecordingHandler first_{"first", events_};
  RecordingHandler second_{"second", events_};
  std::unique_ptr<vxconfd::AppInterface> adapter_;
};

TEST_F(VxconfdTest, ConnectsAtOnceAndRunsThePhasesOfAllHandlersInStep) {
  repository_.InstallModels();
  EXPECT_FALSE(adapter_->connected());
  adapter_->Init(0);
  EXPECT_TRUE(adapter_->connected());
  EXPECT_THAT(events_, ElementsAre("first connected in phase 2", "second connected in phase 2",
                                   "first load", "second load", "first apply", "second apply"));
  EXPECT_TRUE(vxmw::ConfigReady(mw_));
}

TEST_F(VxconfdTest, TellsWhenADeliveryToAllHandlersBeginsAndWhenItIsOver) {
  repository_.InstallModels();
  const vxmw::DeliveryWatch watch(
      mw_, [this](bool delivering) { events_.emplace_back(delivering ? "begins" : "is over"); });
  adapter_->Init(0);
  EXPECT_THAT(events_,
              ElementsAre("first connected in phase 2", "second connected in phase 2", "begins",
                          "first load", "second load", "first apply", "second apply", "is over"));
  events_.clear();
  Commit(kR1);
  EXPECT_THAT(events_, ElementsAre("begins", "first start", "first commit", "second start",
                                   "second commit", "is over"));
}

TEST_F(VxconfdTest, TellsAHandlerItsInterface) { EXPECT_EQ(first_.interface(), adapter_.get()); }

TEST_F(VxconfdTest, IgnoresANullHandler) {
  repository_.InstallModels();
  adapter_->AddConfigHandler(nullptr);
  adapter_->Init(0);
  EXPECT_TRUE(adapter_->connected());
}

TEST_F(VxconfdTest, RefusesFlagsItDoesNotKnow) {
  EXPECT_THROW(adapter_->Init(1), std::invalid_argument);
}

TEST_F(VxconfdTest, TriesAgainFromTheLoopUntilTheModelsAreThere) {
  adapter_->Init(0);
  EXPECT_FALSE(adapter_->connected());
  EXPECT_FALSE(vxmw::ConfigReady(mw_));
  EXPECT_THAT(events_, IsEmpty());
  repository_.InstallModels();
  EXPECT_TRUE(tests::RunUntil(mw_, [this] { return adapter_->connected(); }));
  EXPECT_EQ(events_.size(), 6U);
}

TEST_F(VxconfdTest, WaitsForEveryModelThatIsSubscribedTo) {
  repository_.InstallModel("vx-config", R"(module vx-config { yang-version 1.1;
      namespace "urn:test"; prefix t; container config; })");
  adapter_->Init(0);
  EXPECT_FALSE(adapter_->connected());
}

TEST_F(VxconfdTest, AnExceptionOfAPhaseComesOutOfInit) {
  repository_.InstallModels();
  first_.throws = true;
  EXPECT_THROW(adapter_->Init(0), std::out_of_range);
  EXPECT_FALSE(vxmw::ConfigReady(mw_));
}

TEST_F(VxconfdTest, AnExceptionOfALatePhaseComesOutOfTheLoop) {
  first_.throws = true;
  adapter_->Init(0);
  repository_.InstallModels();
  EXPECT_THROW(tests::RunUntil(mw_, [] { return false; }), std::out_of_range);
}

TEST_F(VxconfdTest, IsNotReadyAnyMoreOnceItIsGone) {
  repository_.InstallModels();
  adapter_->Init(0);
  adapter_.reset();
  EXPECT_FALSE(vxmw::ConfigReady(mw_));
}

TEST_F(VxconfdTest, CanBeMadeAgain) {
  repository_.InstallModels();
  adapter_->Init(0);
  adapter_.reset();
  Make();
  adapter_->Init(0);
  EXPECT_EQ(CountRelays(), 0);
}

TEST_F(VxconfdTest, ASessionBeforeTheConnectionIsNotOpen) {
  const VxConfdCdbSession session(adapter_.get(), CDB_RUNNING, true);
  EXPECT_EQ(session.Socket(), -1);
  EXPECT_THAT(confd_lasterr(), HasSubstr("not connected"));
  EXPECT_EQ(cdb_exists(session.Socket(), "/config"), CONFD_ERR);
  EXPECT_EQ(confd_errno, CONFD_ERR_NOSESSION);
}

TEST_F(VxconfdTest, ASessionThatWasNotStartedIsNotOpen) {
  repository_.InstallModels();
  adapter_->Init(0);
  const VxConfdCdbSession session(adapter_.get(), CDB_RUNNING, false);
  EXPECT_EQ(session.Socket(), -1);
}

TEST_F(VxconfdTest, ASessionIsOneSnapshotAndHoldsUpNoCommit) {
  repository_.InstallModels();
  adapter_->Init(0);
  const VxConfdCdbSession session(adapter_.get(), CDB_RUNNING, true);
  Commit(kR1);
  EXPECT_EQ(cdb_num_instances(session.Socket(), "/config/dhcp/relay"), 0);
  EXPECT_EQ(CountRelays(), 1);
}

TEST_F(VxconfdTest, ASessionEndsWithItsObject) {
  repository_.InstallModels();
  adapter_->Init(0);
  int socket = -1;
  {
    const VxConfdCdbSession session(adapter_.get(), CDB_RUNNING, true);
    socket = session.Socket();
    EXPECT_EQ(cdb_num_instances(socket, "/config/dhcp/relay"), 0);
  }
  EXPECT_EQ(cdb_num_instances(socket, "/config/dhcp/relay"), CONFD_ERR);
  EXPECT_EQ(confd_errno, CONFD_ERR_NOSESSION);
}

TEST_F(VxconfdTest, SessionsAtOnceHaveSocketsOfTheirOwn) {
  repository_.InstallModels();
  adapter_->Init(0);
  const VxConfdCdbSession before(adapter_.get(), CDB_RUNNING, true);
  Commit(kR1);
  const VxConfdCdbSession after(adapter_.get(), CDB_RUNNING, true);
  EXPECT_EQ(cdb_num_instances(before.Socket(), "/config/dhcp/relay"), 0);
  EXPECT_EQ(cdb_num_instances(after.Socket(), "/config/dhcp/relay"), 1);
}

TEST_F(VxconfdTest, ReadsTheStartupDatabaseWhenAskedTo) {
  repository_.InstallModels();
  repository_.Edit(kR1);
  adapter_->Init(0);
  const VxConfdCdbSession startup(adapter_.get(), CDB_STARTUP, true);
  EXPECT_EQ(cdb_num_instances(startup.Socket(), "/config/dhcp/relay"), 0);
  EXPECT_EQ(CountRelays(), 1);
}

}  // namespace
