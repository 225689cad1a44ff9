// What the handler subscribes to, and when it reads and sends the whole configuration.

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class SubscriptionsTest : public HandlerTest {};

TEST_F(SubscriptionsTest, ThreePointsInTheirOrder) {
  const auto& points = handler_->GetSubscriptionPoints();
  ASSERT_THAT(points, SizeIs(3));
  EXPECT_EQ(points[0].priority, 3);
  EXPECT_EQ(points[0].ns_hash, 156912916);
  EXPECT_STREQ(points[0].path, "/config/dhcp/relay");
  EXPECT_EQ(points[0].iter_flags, 1);
  EXPECT_EQ(points[1].priority, 3);
  EXPECT_EQ(points[1].ns_hash, 328607681);
  EXPECT_STREQ(points[1].path, "/config/interface/l3/ipv4/address/ip");
  EXPECT_EQ(points[1].iter_flags, 1);
  EXPECT_EQ(points[2].priority, 3);
  EXPECT_EQ(points[2].ns_hash, 328607681);
  EXPECT_STREQ(points[2].path, "/config/interface/l3/lower-layer-if/vlan");
  EXPECT_EQ(points[2].iter_flags, 1);
  for (const vxconfd::SubscriptionPoint& point : points) EXPECT_TRUE(point.callback);
}

TEST_F(SubscriptionsTest, PlatformSeesTheSamePointsThroughItsBase) {
  const vxconfd::ConfigHandler& base = *handler_;
  EXPECT_EQ(&base.GetSubscriptionPoints(), &handler_->GetSubscriptionPoints());
}

TEST_F(SubscriptionsTest, VectorOfTheBaseStaysEmpty) {
  EXPECT_THAT(Peer::BasePoints(*handler_), IsEmpty());
  EXPECT_THAT(handler_->vxconfd::ConfigHandler::GetSubscriptionPoints(), IsEmpty());
}

TEST_F(SubscriptionsTest, ConstructionLogsRegistersAndReadsNothing) {
  log_.lines.clear();
  log_.asked_levels.clear();
  auto controller = std::make_shared<Controller>();
  DhcpRelayCfgHandler handler(nullptr, controller);
  EXPECT_THAT(log_.Texts(), ElementsAre("10 DhcpRelayCfgHandler: Entry Point"));
  EXPECT_THAT(log_.asked_levels, IsEmpty());
  EXPECT_FALSE(Peer::DumpPending(handler));
  EXPECT_THAT(Peer::Batch(handler), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 0);

  DhcpDumpRequest request;
  controller->Notify(nullptr, &request);
  EXPECT_TRUE(Peer::DumpPending(handler));
}

TEST_F(SubscriptionsTest, DestructionUnregisters) {
  handler_.reset();
  log_.lines.clear();
  DhcpDumpRequest request;
  controller_->Notify(receiver_.get(), &request);
  EXPECT_THAT(log_.lines, IsEmpty());
}

// When the configuration is read and sent.
class DumpStateTest : public HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    SetInstances({"r1", "r2"});
    journal_.Clear();
    log_.lines.clear();
  }

  void Request() {
    DhcpDumpRequest request;
    controller_->Notify(receiver_.get(), &request);
  }
  void Cancel() {
    DhcpDumpCancel cancel;
    controller_->Notify(receiver_.get(), &cancel);
  }
  bool Pending() const { return Peer::DumpPending(*handler_); }
  std::vector<std::string> Sent() const { return journal_.StartingWith("receiver"); }

  // The batch as an earlier event left it.
  void LeaveOldBatch() { Batch().emplace_back("old"); }
};

TEST_F(DumpStateTest, RequestWhileConnectedReadsAndSendsAllAtOnce) {
  interface_.SetConnected(true);
  LeaveOldBatch();
  Request();
  EXPECT_THAT(Sent(), ElementsAre("receiver: set r1", "receiver: set r2"));
  EXPECT_FALSE(Pending());
  EXPECT_THAT(BatchNames(), ElementsAre("r1", "r2"));
}

TEST_F(DumpStateTest, NothingMoreIsSentAfterAnImmediateDump) {
  interface_.SetConnected(true);
  Request();
  journal_.Clear();
  handler_->LoadInitialConfig();
  handler_->ApplyInitialConfig();
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 1);
}

TEST_F(DumpStateTest, SecondRequestWhileConnectedSendsAllAgain) {
  interface_.SetConnected(true);
  Request();
  Request();
  EXPECT_THAT(Sent(), ElementsAre("receiver: set r1", "receiver: set r2", "receiver: set r1",
                                  "receiver: set r2"));
  EXPECT_THAT(BatchNames(), ElementsAre("r1", "r2"));
}

TEST_F(DumpStateTest, RequestWhilePendingAndConnectedIsServedAtOnce) {
  Request();
  interface_.SetConnected(true);
  Request();
  EXPECT_THAT(Sent(), ElementsAre("receiver: set r1", "receiver: set r2"));
  EXPECT_FALSE(Pending());
}

TEST_F(DumpStateTest, RequestWhileNotConnectedWaits) {
  LeaveOldBatch();
  Request();
  EXPECT_TRUE(Pending());
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 0);
  EXPECT_THAT(BatchNames(), ElementsAre("old"));
}

TEST_F(DumpStateTest, RequestWithoutInterfaceWaits) {
  handler_->set_interface(nullptr);
  Request();
  EXPECT_TRUE(Pending());
  EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(DumpStateTest, WaitingRequestIsServedByTheInitialPhases) {
  Request();
  LeaveOldBatch();
  handler_->LoadInitialConfig();
  EXPECT_TRUE(Pending());
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_THAT(BatchNames(), ElementsAre("r1", "r2"));
  handler_->ApplyInitialConfig();
  EXPECT_FALSE(Pending());
  EXPECT_THAT(Sent(), ElementsAre("receiver: set r1", "receiver: set r2"));
}

TEST_F(DumpStateTest, WaitingRequestIsServedOnce) {
  Request();
  handler_->LoadInitialConfig();
  handler_->ApplyInitialConfig();
  journal_.Clear();
  handler_->LoadInitialConfig();
  handler_->ApplyInitialConfig();
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 1);
}

TEST_F(DumpStateTest, CancelWithdrawsAWaitingRequest) {
  Request();
  Cancel();
  EXPECT_FALSE(Pending());
  handler_->LoadInitialConfig();
  handler_->ApplyInitialConfig();
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 0);
}

TEST_F(DumpStateTest, CancelBetweenTheInitialPhasesSendsNothing) {
  Request();
  handler_->LoadInitialConfig();
  Cancel();
  handler_->ApplyInitialConfig();
  EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(DumpStateTest, CancelWithoutRequestDoesNothing) {
  LeaveOldBatch();
  Cancel();
  EXPECT_FALSE(Pending());
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_THAT(BatchNames(), ElementsAre("old"));
}

TEST_F(DumpStateTest, RequestAfterACancelWaitsAgain) {
  Request();
  Cancel();
  Request();
  EXPECT_TRUE(Pending());
}

TEST_F(DumpStateTest, InitialPhasesWithoutRequestReadAndSendNothing) {
  LeaveOldBatch();
  handler_->LoadInitialConfig();
  handler_->ApplyInitialConfig();
  EXPECT_FALSE(Pending());
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 0);
  EXPECT_THAT(BatchNames(), ElementsAre("old"));
}

TEST_F(DumpStateTest, CommitsAreSentWhetherOrNotADumpWaits) {
  for (const bool pending : {false, true}) {
    journal_.Clear();
    Peer::SetDumpPending(*handler_, pending);
    handler_->StartCommit();
    Peer::GetOrAddRelayIntf(*handler_, "r9");
    handler_->ApplyCommitConfig();
    EXPECT_THAT(Sent(), ElementsAre("receiver: delete r9", "receiver: set r9"));
    EXPECT_EQ(Pending(), pending);
    EXPECT_THAT(BatchNames(), ElementsAre("r9"));
  }
}

TEST_F(DumpStateTest, StartCommitEmptiesTheBatch) {
  LeaveOldBatch();
  handler_->StartCommit();
  EXPECT_THAT(Batch(), IsEmpty());
  EXPECT_THAT(journal_.entries(), ElementsAre("zlog 10 StartCommit: Entry Point"));
}

TEST_F(DumpStateTest, OtherCommandsAreIgnored) {
  interface_.SetConnected(true);
  DhcpRelayIntfCmd own(DhcpRelayIntf("r1"), false);
  class Unknown : public Command {
  } unknown;
  handler_->HandleCommand(&own);
  handler_->HandleCommand(&unknown);
  handler_->HandleCommand(nullptr);
  EXPECT_THAT(journal_.entries(), IsEmpty());
  EXPECT_FALSE(Pending());
}

TEST_F(DumpStateTest, EntryPointsAreLoggedWhateverTheLevel) {
  handler_->LoadInitialConfig();
  handler_->ApplyInitialConfig();
  handler_->StartCommit();
  handler_->ApplyCommitConfig();
  Request();
  Cancel();
  EXPECT_THAT(
      log_.Texts(),
      ElementsAre("10 LoadInitialConfig: Entry Point", "10 ApplyInitialConfig: Entry Point",
                  "10 StartCommit: Entry Point", "10 ApplyCommitConfig: Entry Point",
                  "10 ProcessDumpRequest: Entry Point", "10 ProcessDumpCancel: Entry Point"));
  for (const fakes::LogLine& line : log_.lines) {
    EXPECT_EQ(line.source_path, kHandlerPath);
    EXPECT_EQ(line.category, fakes::Vxmw::Category());
    EXPECT_GT(line.line, 0);
  }
  EXPECT_THAT(log_.asked_levels, IsEmpty());
}

TEST_F(DumpStateTest, EntryPointComesBeforeTheWork) {
  interface_.SetConnected(true);
  Request();
  EXPECT_EQ(journal_.entries()[0], "zlog 10 ProcessDumpRequest: Entry Point");
  EXPECT_EQ(journal_.entries()[1], "session open");
}

}  // namespace
}  // namespace dhcp_relay_app
