// The client on a real loop, with a scripted manager at the other end.

#include "platform/dhcp_user/src/client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <dhcp_user/dhcp_user.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "dhcp_manager/table/journal.h"
#include "tests/support/calls.h"
#include "tests/support/loop.h"

namespace {

namespace fs = std::filesystem;
namespace wire = dhcp_relay::wire;
using dhcp_relay::Client;
using dhcp_relay::DhcpUser;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Callbacks : public DhcpUser::CallbackIf {
 public:
  void OnDumpRequest() override {
    events.emplace_back("request");
    if (on_request) on_request();
  }
  void OnDumpCancel() override { events.emplace_back("cancel"); }

  std::vector<std::string> events;
  std::function<void()> on_request;
};

// Accepts one client at a time and writes down what it says.
class ScriptedManager {
 public:
  explicit ScriptedManager(const fs::path& directory) : path_(directory / wire::kSocketName) {
    listener_ = base::Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0));
    const sockaddr_un address = base::SocketAddress(path_);
    EXPECT_EQ(bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    EXPECT_EQ(listen(listener_.get(), 4), 0);
  }
  ~ScriptedManager() { unlink(path_.c_str()); }
  ScriptedManager(const ScriptedManager&) = delete;
  ScriptedManager& operator=(const ScriptedManager&) = delete;

  // Whether a client is there and said something; takes all it said.
  bool Listen() {
    const base::Descriptor next(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK));
    if (next) {
      client_ = base::Descriptor(dup(next.get()));
      ++connections;
    }
    if (!client_) return false;
    while (reader_.Receive(client_.get()) == base::PacketReader::Result::kPacket) Hear();
    return !said.empty();
  }

  void Send(const wire::ManagerMessage& message) {
    base::SendPacket(client_.get(), message.SerializeAsString());
  }
  void RequestDump(std::uint32_t id) {
    wire::ManagerMessage message;
    message.mutable_dump_request()->set_id(id);
    Send(message);
  }
  void CancelDump(std::uint32_t id) {
    wire::ManagerMessage message;
    message.mutable_dump_cancel()->set_id(id);
    Send(message);
  }
  void SendGarbage() { base::SendPacket(client_.get(), "\xff\xff\xff"); }
  void HangUp() { client_ = base::Descriptor(); }

  std::vector<std::string> said;
  int connections = 0;

 private:
  void Hear() {
    wire::ClientMessage message;
    reader_.Parse(message);
    if (message.has_hello()) said.push_back("hello " + std::to_string(message.hello().version()));
    if (message.has_dump_begin()) {
      said.push_back("begin " + std::to_string(message.dump_begin().id()));
    }
    if (message.has_commits_pending()) {
      said.emplace_back(message.commits_pending() ? "pending" : "not pending");
    }
    if (message.has_dump_complete()) {
      said.push_back("complete " + std::to_string(message.dump_complete().id()));
    }
    for (const auto& call : message.calls().calls()) {
      said.push_back(dhcp_manager::JournalLine(call));
    }
    if (message.calls().commit_continues()) said.emplace_back("continues");
    if (message.has_calls() && message.calls().calls().empty()) said.emplace_back("end");
  }

  fs::path path_;
  base::Descriptor listener_;
  base::Descriptor client_;
  base::PacketReader reader_;
};

class ClientTest : public ::testing::Test {
 protected:
  ClientTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    StartManager();
  }
  ~ClientTest() override {
    client_.reset();
    manager_.reset();
    vxmw_finish(&mw_);
    fs::remove_all(directory_);
  }

  void StartManager() { manager_ = std::make_unique<ScriptedManager>(directory_); }

  void StartClient(std::size_t queue_limit = dhcp_relay::kQueueLimit) {
    client_ = std::make_unique<Client>(mw_, &callbacks_, directory_, queue_limit);
  }

  // Runs until the manager has heard these, in all, and then nothing more for a turn.
  void ExpectHeard(const std::vector<std::string>& expected) {
    EXPECT_TRUE(tests::RunUntil(mw_, [&] {
      manager_->Listen();
      return manager_->said.size() >= expected.size();
    }));
    Settle();
    EXPECT_EQ(manager_->said, expected);
  }

  // A few turns of the loop.
  void Settle() {
    int turns = 0;
    tests::RunUntil(mw_, [&] {
      manager_->Listen();
      return ++turns > 3;
    });
  }

  void Connect() {
    StartClient();
    ExpectHeard({"hello 1"});
    manager_->said.clear();
  }

  void HangUpAtOnce(int times);

  void DeleteInstance(const std::string& name) {
    client_->Send(tests::Call(wire::DELETE_INSTANCE, name));
  }

  fs::path directory_;
  vxmw_t* mw_ = vxmw_init("client_test");
  Callbacks callbacks_;
  std::unique_ptr<ScriptedManager> manager_;
  std::unique_ptr<Client> client_;
};

TEST_F(ClientTest, GreetsFirst) {
  StartClient();
  ExpectHeard({"hello 1"});
}

TEST_F(ClientTest, NeverCallsBackFromItsConstructor) {
  StartClient();
  EXPECT_FALSE(client_->connected());
  EXPECT_THAT(callbacks_.events, IsEmpty());
}

TEST_F(ClientTest, FindsAManagerThatComesLater) {
  manager_.reset();
  StartClient();
  tests::RunUntil(mw_, [n = 0]() mutable { return ++n > 3; });
  EXPECT_FALSE(client_->connected());
  StartManager();
  ExpectHeard({"hello 1"});
}

TEST_F(ClientTest, ConnectsAgainAfterALoss) {
  Connect();
  manager_->HangUp();
  ExpectHeard({"hello 1"});
  EXPECT_EQ(manager_->connections, 2);
}

// Hangs up on every connection that the client makes, `times` in all.
void ClientTest::HangUpAtOnce(int times) {
  for (int i = 0; i < times; ++i) {
    EXPECT_TRUE(tests::RunUntil(mw_, [this] { return manager_->Listen(); }));
    manager_->said.clear();
    manager_->HangUp();
  }
}

TEST_F(ClientTest, WaitsLongerForAManagerThatClosesEveryConnection) {
  StartClient();
  HangUpAtOnce(4);
  bool waited = false;
  vxmw::TimerSource shorter(mw_, [&waited] { waited = true; });
  shorter.Arm(std::chrono::milliseconds(300));  // the client's first delay is 50, its fourth 400
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return manager_->Listen() || waited; }));
  EXPECT_TRUE(waited);
  EXPECT_EQ(manager_->connections, 4);
}

TEST_F(ClientTest, ConnectsAgainSoonAfterAManagerThatAnswered) {
  StartClient();
  HangUpAtOnce(5);
  EXPECT_TRUE(tests::RunUntil(mw_, [this] { return manager_->Listen(); }));
  manager_->RequestDump(1);
  EXPECT_TRUE(tests::RunUntil(mw_, [this] { return !callbacks_.events.empty(); }));
  manager_->said.clear();
  manager_->HangUp();
  bool waited = false;
  vxmw::TimerSource longer(mw_, [&waited] { waited = true; });
  longer.Arm(std::chrono::milliseconds(900));  // the next delay would be 1000
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return manager_->Listen() || waited; }));
  EXPECT_FALSE(waited);
}

TEST_F(ClientTest, ReportsAManagerThatClosesEveryConnectionOnce) {
  const fs::path log = directory_ / "log";
  const fs::path configuration = directory_ / "zlog.conf";
  std::ofstream(configuration)
      << "[levels]\nTRACE = 10\nERR = 12, LOG_ERR\n[formats]\nline = \"%m%n\"\n"
      << "[rules]\n*.ERR \"" << log.string() << "\"; line\n";
  setenv("VXMW_TRACE_CONF", configuration.c_str(), 1);
  vxmw_trace_init(mw_, "client_test");
  StartClient();
  HangUpAtOnce(6);
  Settle();
  std::ifstream lines(log);
  const std::string text((std::istreambuf_iterator<char>(lines)), {});
  EXPECT_EQ(text, "no DHCP manager, trying again: the DHCP manager closed the connection\n");
}

TEST_F(ClientTest, DropsCallsWhileThereIsNoConnection) {
  StartClient();
  DeleteInstance("lost");
  ExpectHeard({"hello 1"});
  DeleteInstance("r1");
  ExpectHeard({"hello 1", "DeleteInstance r1"});
}

TEST_F(ClientTest, FramesADumpAndCompletesItWhenTheCallbackReturns) {
  Connect();
  vxmw::SetConfigReady(mw_, true);
  callbacks_.on_request = [this] {
    DeleteInstance("r1");
    DeleteInstance("r2");
  };
  manager_->RequestDump(7);
  ExpectHeard({"begin 7", "DeleteInstance r1", "DeleteInstance r2", "complete 7"});
  EXPECT_THAT(callbacks_.events, ElementsAre("request"));
}

TEST_F(ClientTest, CompletesADumpThatHadToWaitAfterTheInitialPhases) {
  Connect();
  manager_->RequestDump(7);
  ExpectHeard({"begin 7"});
  DeleteInstance("r1");  // of the initial phases
  vxmw::SetConfigReady(mw_, true);
  ExpectHeard({"begin 7", "DeleteInstance r1", "complete 7"});
}

TEST_F(ClientTest, SendsCallsAtOnceAgainAfterADump) {
  Connect();
  vxmw::SetConfigReady(mw_, true);
  manager_->RequestDump(7);
  ExpectHeard({"begin 7", "complete 7"});
  DeleteInstance("r1");
  manager_->Listen();
  EXPECT_EQ(manager_->said.back(), "DeleteInstance r1");
}

TEST_F(ClientTest, SaysWhenCommitsArePendingAndWhenTheirCallsHaveBeenMade) {
  Connect();
  vxmw::SetConfigReady(mw_, true);
  manager_->RequestDump(7);
  ExpectHeard({"begin 7", "complete 7"});
  vxmw::SetConfigReady(mw_, false);
  DeleteInstance("r1");
  vxmw::SetConfigReady(mw_, true);
  ExpectHeard({"begin 7", "complete 7", "pending", "DeleteInstance r1", "not pending"});
}

TEST_F(ClientTest, SaysNothingOfPendingCommitsBeforeADumpIsComplete) {
  Connect();
  vxmw::SetConfigReady(mw_, true);
  vxmw::SetConfigReady(mw_, false);
  manager_->RequestDump(7);
  ExpectHeard({"begin 7"});
  DeleteInstance("r1");
  vxmw::SetConfigReady(mw_, true);
  ExpectHeard({"begin 7", "DeleteInstance r1", "complete 7"});
}

TEST_F(ClientTest, TheCallsOfADeliveryGoTogetherWhenItIsOver) {
  Connect();
  vxmw::SetDelivering(mw_, true);
  DeleteInstance("r1");
  DeleteInstance("r2");
  manager_->Listen();
  EXPECT_THAT(manager_->said, IsEmpty());
  vxmw::SetDelivering(mw_, false);
  DeleteInstance("r3");
  ExpectHeard({"DeleteInstance r1", "DeleteInstance r2", "DeleteInstance r3"});
}

TEST_F(ClientTest, TellsTheEndOfADeliveryOfWhichAPartWasSent) {
  Connect();
  vxmw::SetDelivering(mw_, true);
  DeleteInstance("r1");
  ExpectHeard({"DeleteInstance r1", "continues"});
  vxmw::SetDelivering(mw_, false);
  ExpectHeard({"DeleteInstance r1", "continues", "end"});
}

TEST_F(ClientTest, ADeliveryThatIsNotOverIsNotToldAsOver) {
  Connect();
  vxmw::SetConfigReady(mw_, true);
  manager_->RequestDump(7);
  ExpectHeard({"begin 7", "complete 7"});
  vxmw::SetDelivering(mw_, true);
  DeleteInstance("r1");
  vxmw::SetConfigReady(mw_, false);
  ExpectHeard({"begin 7", "complete 7", "DeleteInstance r1", "continues", "pending"});
}

TEST_F(ClientTest, ADeliveryWhileADumpWaitsIsAPartOfIt) {
  Connect();
  manager_->RequestDump(7);
  ExpectHeard({"begin 7"});
  vxmw::SetDelivering(mw_, true);
  DeleteInstance("r1");
  ExpectHeard({"begin 7", "DeleteInstance r1"});
  vxmw::SetDelivering(mw_, false);
  DeleteInstance("r2");
  vxmw::SetConfigReady(mw_, true);
  ExpectHeard({"begin 7", "DeleteInstance r1", "DeleteInstance r2", "complete 7"});
}

TEST_F(ClientTest, ALossInTheMiddleOfADeliveryLeavesNothingOfItToTheNextConnection) {
  Connect();
  vxmw::SetDelivering(mw_, true);
  DeleteInstance("r1");
  manager_->HangUp();
  ExpectHeard({"hello 1"});
  DeleteInstance("r2");
  vxmw::SetDelivering(mw_, false);
  ExpectHeard({"hello 1", "DeleteInstance r2"});
}

TEST_F(ClientTest, ANewRequestCancelsOneThatWaits) {
  Connect();
  manager_->RequestDump(7);
  ExpectHeard({"begin 7"});
  manager_->RequestDump(8);
  ExpectHeard({"begin 7", "begin 8"});
  EXPECT_THAT(callbacks_.events, ElementsAre("request", "cancel", "request"));
  vxmw::SetConfigReady(mw_, true);
  ExpectHeard({"begin 7", "begin 8", "complete 8"});
}

TEST_F(ClientTest, ACancelWithdrawsTheDumpItNames) {
  Connect();
  manager_->RequestDump(7);
  ExpectHeard({"begin 7"});
  manager_->CancelDump(6);
  Settle();
  EXPECT_THAT(callbacks_.events, ElementsAre("request"));
  manager_->CancelDump(7);
  Settle();
  EXPECT_THAT(callbacks_.events, ElementsAre("request", "cancel"));
  vxmw::SetConfigReady(mw_, true);
  ExpectHeard({"begin 7"});
}

TEST_F(ClientTest, ALossWithdrawsADumpThatWaits) {
  Connect();
  manager_->RequestDump(7);
  ExpectHeard({"begin 7"});
  manager_->said.clear();
  manager_->HangUp();
  ExpectHeard({"hello 1"});
  EXPECT_THAT(callbacks_.events, ElementsAre("request", "cancel"));
}

TEST_F(ClientTest, AnAnsweredDumpIsNotWithdrawnByALoss) {
  Connect();
  vxmw::SetConfigReady(mw_, true);
  manager_->RequestDump(7);
  ExpectHeard({"begin 7", "complete 7"});
  manager_->said.clear();
  manager_->HangUp();
  ExpectHeard({"hello 1"});
  EXPECT_THAT(callbacks_.events, ElementsAre("request"));
}

TEST_F(ClientTest, ReconnectsAfterGarbage) {
  Connect();
  manager_->SendGarbage();
  ExpectHeard({"hello 1"});
  EXPECT_EQ(manager_->connections, 2);
}

TEST_F(ClientTest, ReconnectsWhenTheQueueLimitIsExceeded) {
  StartClient(1000);
  ExpectHeard({"hello 1"});
  for (int i = 0; i < 1000000 && client_->connected(); ++i) DeleteInstance("r1");
  EXPECT_FALSE(client_->connected());
  manager_->said.clear();
  EXPECT_TRUE(tests::RunUntil(mw_, [this] {
    manager_->Listen();
    return manager_->connections == 2 && !manager_->said.empty() &&
           manager_->said.back() == "hello 1";
  }));
}

TEST_F(ClientTest, ManyCallsArriveInTheirOrder) {
  Connect();
  constexpr int kCalls = 50000;
  std::vector<std::string> expected;
  for (int i = 0; i < kCalls; ++i) {
    DeleteInstance(std::to_string(i));
    expected.push_back("DeleteInstance " + std::to_string(i));
  }
  ExpectHeard(expected);
}

TEST_F(ClientTest, WhatACallbackThrowsComesOutOfTheLoop) {
  Connect();
  callbacks_.on_request = [] { throw std::out_of_range("map::at"); };
  manager_->RequestDump(7);
  EXPECT_THROW(tests::RunUntil(mw_, [] { return false; }), std::out_of_range);
}

TEST_F(ClientTest, ACallThatCannotBeSentIsDroppedAndLaterOnesArrive) {
  Connect();
  DeleteInstance("");
  DeleteInstance(std::string(256, 'x'));
  client_->Send(tests::PolicyCall(wire::SET_POLICY, "r1", 7));
  DeleteInstance("r1");
  ExpectHeard({"DeleteInstance r1"});
}

TEST_F(ClientTest, ANameMayBeAnyBytes) {
  Connect();
  DeleteInstance("\xff\xfe");
  ExpectHeard({"DeleteInstance \xff\xfe"});
}

TEST_F(ClientTest, EveryOperationOfTheClientArrivesAsItself) {
  setenv("DHCP_MANAGER_DIR", directory_.c_str(), 1);
  DhcpUser user(mw_, &callbacks_);
  ExpectHeard({"hello 1"});
  manager_->said.clear();
  const auto address = *nettypes::IPv4Addr::parse("192.0.2.1");
  user.AddServer("r1", address);
  user.DeleteServer("r1", address);
  user.DeleteInstance("r1");
  user.AddL3Interface("r1", "l3-5");
  user.SetL3InterfaceAddress("r1", "l3-5", address);
  user.SetVrf("r1", 0x01000007);
  user.SetL3InterfaceVlan("r1", "l3-5", 65535);
  user.DeleteL3InterfaceVlan("r1", "l3-5", 5);
  user.DeleteL3Interface("r1", "l3-5");
  user.SetTrusted("r1", true);
  user.SetOption("r1", false);
  user.SetCheck("r1", true);
  user.SetPolicy("r1", dhcp_relay::Policy::kDrop);
  user.AddIfOption("r1", "l3-5");
  user.DeleteIfOption("r1", "l3-5");
  user.SetIfOptionTrusted("r1", "l3-5", false);
  user.SetIfOptionOption("r1", "l3-5", true);
  user.SetIfOptionCheck("r1", "l3-5", false);
  user.SetIfOptionPolicy("r1", "l3-5", dhcp_relay::Policy::kReplace);
  ExpectHeard({"AddServer r1 192.0.2.1", "DeleteServer r1 192.0.2.1", "DeleteInstance r1",
               "AddL3Interface r1 l3-5", "SetL3InterfaceAddress r1 l3-5 192.0.2.1",
               "SetVrf r1 0x01000007", "SetL3InterfaceVlan r1 l3-5 65535",
               "DeleteL3InterfaceVlan r1 l3-5 5", "DeleteL3Interface r1 l3-5", "SetTrusted r1 true",
               "SetOption r1 false", "SetCheck r1 true", "SetPolicy r1 drop", "AddIfOption r1 l3-5",
               "DeleteIfOption r1 l3-5", "SetIfOptionTrusted r1 l3-5 false",
               "SetIfOptionOption r1 l3-5 true", "SetIfOptionCheck r1 l3-5 false",
               "SetIfOptionPolicy r1 l3-5 replace"});
}

}  // namespace
