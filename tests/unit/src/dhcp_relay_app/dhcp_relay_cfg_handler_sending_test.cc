// Handing the batch to the rest of the daemon.

#include <stdexcept>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class SendingTest : public HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    journal_.Clear();
    log_.lines.clear();
    log_.asked_levels.clear();
  }

  void SendSet() { Peer::SendSetConfig(*handler_); }
  void SendDelete() { Peer::SendDeleteConfig(*handler_); }
  void AddBadRecord() { Batch().emplace_back("bad").check = static_cast<TriState>(2); }
};

constexpr char kFreshA[] =
    "DHCP Relay name: A\n\tShould delete: false\n\tTrusted: undefined\n\tCheck: undefined\n"
    "\tOption: undefined\n\tPolicy: undefined\n";

TEST_F(SendingTest, CommitOfOneInstanceLogsAndSendsItTwice) {
  log_.Enable(kTraceLevel);
  handler_->StartCommit();
  Batch().emplace_back("A");
  handler_->ApplyCommitConfig();
  EXPECT_THAT(
      journal_.entries(),
      ElementsAre("zlog 10 StartCommit: Entry Point", "zlog 10 ApplyCommitConfig: Entry Point",
                  std::string("zlog 10 SendDeleteConfig: Delete: \n\t") + kFreshA,
                  "receiver: delete A", std::string("zlog 10 SendSetConfig: Set: \n\t") + kFreshA,
                  "receiver: set A"));
  EXPECT_THAT(receiver_->records,
              ElementsAre(Received{DhcpRelayIntf("A"), true}, Received{DhcpRelayIntf("A"), false}));
}

TEST_F(SendingTest, CommitSendsAllDeletesBeforeAllSets) {
  handler_->StartCommit();
  Batch().emplace_back("A");
  Batch().emplace_back("B");
  handler_->ApplyCommitConfig();
  EXPECT_THAT(journal_.StartingWith("receiver"),
              ElementsAre("receiver: delete A", "receiver: delete B", "receiver: set A",
                          "receiver: set B"));
}

TEST_F(SendingTest, LinesCarryTheHandlersPathCategoryAndFunction) {
  log_.Enable(kTraceLevel);
  Batch().emplace_back("A");
  SendSet();
  SendDelete();
  ASSERT_THAT(log_.lines, SizeIs(2));
  EXPECT_EQ(log_.lines[0].function, "SendSetConfig");
  EXPECT_EQ(log_.lines[1].function, "SendDeleteConfig");
  for (const fakes::LogLine& line : log_.lines) {
    EXPECT_EQ(line.source_path, kHandlerPath);
    EXPECT_EQ(line.category, fakes::Vxmw::Category());
    EXPECT_EQ(line.level, 10);
    EXPECT_GT(line.line, 0);
  }
}

TEST_F(SendingTest, CommandCarriesAFullCopyOfTheRecord) {
  Batch().push_back(FullRecord("A"));
  SendSet();
  SendDelete();
  EXPECT_THAT(receiver_->records,
              ElementsAre(Received{FullRecord("A"), false}, Received{FullRecord("A"), true}));
}

TEST_F(SendingTest, CommandHoldsItsOwnCopy) {
  Batch().emplace_back("A");
  const DhcpRelayIntf* carried = nullptr;
  receiver_->on_command = [&](Command* command) {
    carried = &dynamic_cast<DhcpRelayIntfCmd&>(*command).intf;
  };
  SendSet();
  EXPECT_NE(carried, nullptr);
  EXPECT_NE(carried, &Batch().front());
}

TEST_F(SendingTest, RecordsAreSentWhateverTheyHold) {
  Batch().emplace_back("empty");
  Batch().emplace_back("gone").SetShouldDelete();
  SendSet();
  SendDelete();
  EXPECT_THAT(journal_.StartingWith("receiver"),
              ElementsAre("receiver: set empty", "receiver: set gone", "receiver: delete empty",
                          "receiver: delete gone"));
}

TEST_F(SendingTest, BatchStaysAsItIs) {
  Batch().push_back(FullRecord("A"));
  Batch().emplace_back("B");
  SendSet();
  SendDelete();
  SendSet();
  EXPECT_THAT(Batch(), ElementsAre(FullRecord("A"), DhcpRelayIntf("B")));
  EXPECT_THAT(receiver_->records, SizeIs(6));
}

TEST_F(SendingTest, HandlerDoesNotReceiveItsOwnCommands) {
  Receiver second(controller_, "second");
  Batch().emplace_back("A");
  SendSet();
  EXPECT_THAT(journal_.entries(), ElementsAre("receiver: set A", "second: set A"));
}

class WatchingController : public Controller {
 public:
  void Notify(Component* sender, Command*) override { senders.push_back(sender); }
  std::vector<Component*> senders;
};

TEST_F(SendingTest, HandlerIsTheSender) {
  auto controller = std::make_shared<WatchingController>();
  DhcpRelayCfgHandler handler(nullptr, controller);
  Peer::Batch(handler).emplace_back("A");
  Peer::SendSetConfig(handler);
  Peer::SendDeleteConfig(handler);
  EXPECT_THAT(controller->senders, ElementsAre(&handler, &handler));
}

TEST_F(SendingTest, WithoutMediatorRecordsAreLoggedAndDropped) {
  log_.Enable(kTraceLevel);
  DhcpRelayCfgHandler handler(nullptr, nullptr);
  Peer::Batch(handler).emplace_back("A");
  journal_.Clear();
  Peer::SendSetConfig(handler);
  Peer::SendDeleteConfig(handler);
  EXPECT_THAT(journal_.entries(),
              ElementsAre(std::string("zlog 10 SendSetConfig: Set: \n\t") + kFreshA,
                          std::string("zlog 10 SendDeleteConfig: Delete: \n\t") + kFreshA));
}

TEST_F(SendingTest, EmptyBatchSendsAndLogsNothing) {
  log_.Enable(kTraceLevel);
  SendSet();
  SendDelete();
  EXPECT_THAT(journal_.entries(), IsEmpty());
}

TEST_F(SendingTest, RecordThatCannotBeRenderedStopsTheSets) {
  log_.Enable(kTraceLevel);
  Batch().emplace_back("A");
  AddBadRecord();
  Batch().emplace_back("C");
  EXPECT_THROW(SendSet(), std::out_of_range);
  EXPECT_THAT(journal_.StartingWith("receiver"), ElementsAre("receiver: set A"));
  EXPECT_THAT(log_.lines, SizeIs(1));
}

TEST_F(SendingTest, RecordThatCannotBeRenderedStopsTheDeletesAndTheSetsBehindThem) {
  log_.Enable(kTraceLevel);
  Batch().emplace_back("A");
  AddBadRecord();
  EXPECT_THROW(handler_->ApplyCommitConfig(), std::out_of_range);
  EXPECT_THAT(journal_.StartingWith("receiver"), ElementsAre("receiver: delete A"));
}

// A record that could not be rendered shows that nothing is rendered.
TEST_F(SendingTest, WithTraceOffNothingIsRenderedAndAllIsSent) {
  log_.Enable(kErrorLevel);
  Batch().emplace_back("A");
  AddBadRecord();
  Batch().emplace_back("C");
  SendSet();
  SendDelete();
  EXPECT_THAT(journal_.entries(),
              ElementsAre("receiver: set A", "receiver: set bad", "receiver: set C",
                          "receiver: delete A", "receiver: delete bad", "receiver: delete C"));
  EXPECT_THAT(log_.lines, IsEmpty());
  EXPECT_THAT(log_.asked_levels, ElementsAre(10, 10, 10, 10, 10, 10));
}

TEST_F(SendingTest, ExceptionOfAReceiverStopsTheSending) {
  Batch().emplace_back("A");
  Batch().emplace_back("B");
  receiver_->on_command = [](Command*) { throw std::runtime_error("receiver broke"); };
  EXPECT_THROW(SendSet(), std::runtime_error);
  EXPECT_THAT(journal_.StartingWith("receiver"), ElementsAre("receiver: set A"));
  EXPECT_THAT(BatchNames(), ElementsAre("A", "B"));
}

}  // namespace
}  // namespace dhcp_relay_app
