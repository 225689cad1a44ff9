// The daemon's end of the manager, with scripted daemons.

#include "dhcp_manager/control/config_server.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include <vxmw/event.h>

#include "base/packet_socket.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/wire/wire.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/control/server_fixture.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::ConfigServer;
using dhcp_manager::Journal;
using dhcp_manager::Resync;

class ScriptedDaemon : public tests::Peer {
 public:
  using Peer::Peer;

  void Hello(std::uint32_t version = wire::kVersion) {
    wire::ClientMessage out;
    out.mutable_hello()->set_version(version);
    Send(out);
  }
  void Begin(std::uint32_t id) {
    wire::ClientMessage out;
    out.mutable_dump_begin()->set_id(id);
    Send(out);
  }
  void Complete(std::uint32_t id) {
    wire::ClientMessage out;
    out.mutable_dump_complete()->set_id(id);
    Send(out);
  }
  void Call(const wire::Call& call, bool commit_continues = false) {
    wire::ClientMessage out;
    out.mutable_calls()->set_commit_continues(commit_continues);
    *out.mutable_calls()->add_calls() = call;
    Send(out);
  }

  // Takes one message into `message` if there is one.
  bool Receive() { return Peer::Receive(message); }
  bool IsClosed() { return Peer::IsClosed<wire::ManagerMessage>(); }

  wire::ManagerMessage message;
};

class ConfigServerTest : public tests::ServerTest {
 protected:
  ConfigServerTest() : journal_(directory_ / "journal"), server_(MakeServer()) {}

  std::unique_ptr<ConfigServer> MakeServer() {
    return std::make_unique<ConfigServer>(mw_, Socket(wire::kSocketName), resync_, journal_);
  }

  std::unique_ptr<ScriptedDaemon> Daemon() {
    return std::make_unique<ScriptedDaemon>(directory_ / wire::kSocketName);
  }

  // A daemon that was asked for a dump; its number is in message.
  std::unique_ptr<ScriptedDaemon> AskedDaemon() {
    auto daemon = Daemon();
    daemon->Hello();
    EXPECT_TRUE(RunUntil([&] { return daemon->Receive(); }));
    EXPECT_TRUE(daemon->message.has_dump_request());
    return daemon;
  }

  void ExpectClosed(ScriptedDaemon& daemon) {
    EXPECT_TRUE(RunUntil([&] { return daemon.IsClosed(); }));
    EXPECT_EQ(resync_.state(), Resync::State::kDisconnected);
  }

  Journal journal_;
  std::unique_ptr<ConfigServer> server_;
};

TEST_F(ConfigServerTest, AsksEveryDaemonForADump) {
  auto daemon = AskedDaemon();
  const auto id = daemon->message.dump_request().id();
  daemon->Begin(id);
  daemon->Call(tests::FlagCall(wire::SET_CHECK, "r1", true));
  daemon->Complete(id);
  EXPECT_TRUE(RunUntil([&] { return resync_.state() == Resync::State::kInSync; }));
  EXPECT_EQ(resync_.table().instances().count("r1"), 1U);

  daemon.reset();
  EXPECT_TRUE(RunUntil([&] { return resync_.state() == Resync::State::kDisconnected; }));
  EXPECT_EQ(resync_.table().instances().count("r1"), 1U);
  daemon = AskedDaemon();
  EXPECT_NE(daemon->message.dump_request().id(), id);
}

TEST_F(ConfigServerTest, WritesTheJournalBeforeTheTurnEnds) {
  auto daemon = AskedDaemon();
  daemon->Call(tests::Call(wire::DELETE_INSTANCE, "r1"));
  EXPECT_TRUE(RunUntil([&] { return resync_.calls() == 1; }));
  std::ostringstream content;
  content << std::ifstream(directory_ / "journal").rdbuf();
  EXPECT_EQ(content.str(), "DeleteInstance r1\n");
}

TEST_F(ConfigServerTest, TakesManyPackets) {
  auto daemon = AskedDaemon();
  for (std::uint32_t i = 0; i < 2000; ++i) {
    daemon->Call(tests::AddressCall(wire::ADD_SERVER, "r1", 0x0A000000 + i));
    if (i % 100 == 99) RunUntil([&] { return resync_.calls() == i + 1; });
  }
  EXPECT_EQ(resync_.table().instances().at("r1").servers.size(), 2000U);
}

TEST_F(ConfigServerTest, GoesOnWithoutItsJournal) {
  server_.reset();
  journal_ = Journal("/dev/full");
  server_ = MakeServer();
  auto daemon = AskedDaemon();
  for (std::uint64_t calls = 1; calls < 4; ++calls) {
    daemon->Call(tests::Call(wire::DELETE_INSTANCE, "r1"));
    EXPECT_TRUE(RunUntil([&] { return resync_.calls() == calls; }));
  }
  EXPECT_EQ(journal_.dropped(), 3U);
}

// A daemon in sync, and a server that waits for the rest of a commit no longer than that.
class CommitTest : public ConfigServerTest {
 protected:
  void StartServer(std::chrono::milliseconds patience) {
    server_.reset();
    server_ = std::make_unique<ConfigServer>(mw_, Socket(wire::kSocketName), resync_, journal_,
                                             std::nullopt, patience);
    daemon_ = AskedDaemon();
    daemon_->Begin(daemon_->message.dump_request().id());
    daemon_->Complete(daemon_->message.dump_request().id());
    EXPECT_TRUE(RunUntil([&] { return resync_.in_sync(); }));
  }

  void Add(const std::string& instance, bool commit_continues) {
    daemon_->Call(tests::FlagCall(wire::SET_CHECK, instance, true), commit_continues);
  }

  bool RunUntilCalls(std::uint64_t calls) {
    return RunUntil([this, calls] { return resync_.calls() == calls; });
  }

  std::unique_ptr<ScriptedDaemon> daemon_;
};

TEST_F(CommitTest, OfSeveralPacketsIsInUseWithTheLast) {
  StartServer(dhcp_manager::kCommitPatience);
  Add("r1", true);
  Add("r2", true);
  EXPECT_TRUE(RunUntilCalls(2));
  EXPECT_TRUE(resync_.table().instances().empty());
  Add("r3", false);
  EXPECT_TRUE(RunUntilCalls(3));
  EXPECT_EQ(resync_.table().instances().size(), 3U);
  Add("r4", false);
  EXPECT_TRUE(RunUntilCalls(4));
  EXPECT_EQ(resync_.table().instances().size(), 4U);
}

TEST_F(CommitTest, OfADaemonThatDiesInTheMiddleIsNotInUse) {
  StartServer(dhcp_manager::kCommitPatience);
  Add("r1", true);
  EXPECT_TRUE(RunUntilCalls(1));
  daemon_.reset();
  EXPECT_TRUE(RunUntil([&] { return resync_.state() == Resync::State::kDisconnected; }));
  EXPECT_TRUE(resync_.table().instances().empty());
}

TEST_F(CommitTest, WhoseRestDoesNotComeEndsTheConnection) {
  StartServer(std::chrono::milliseconds(50));
  Add("r1", true);
  ExpectClosed(*daemon_);
  EXPECT_TRUE(resync_.table().instances().empty());
}

TEST_F(CommitTest, ThatIsCompleteIsNotWaitedFor) {
  StartServer(std::chrono::milliseconds(1000));
  Add("r1", true);
  EXPECT_TRUE(RunUntilCalls(1));
  Add("r2", false);
  EXPECT_TRUE(RunUntilCalls(2));
  bool waited = false;
  vxmw::TimerSource longer(mw_, [&waited] { waited = true; });
  longer.Arm(std::chrono::milliseconds(1100));
  EXPECT_TRUE(RunUntil([&] { return waited; }));
  EXPECT_TRUE(resync_.in_sync());
}

// Daemons of other users.
class DaemonUserTest : public ConfigServerTest {
 protected:
  static constexpr uid_t kDaemon = 4711;
  static constexpr gid_t kGroup = 4712;

  DaemonUserTest() {
    std::filesystem::permissions(directory_, static_cast<std::filesystem::perms>(0755));
    server_.reset();
    server_ = std::make_unique<ConfigServer>(
        mw_, dhcp_manager::SocketFile(directory_ / wire::kSocketName, {{}, kGroup}), resync_,
        journal_, kDaemon);
  }

  std::unique_ptr<ScriptedDaemon> DaemonOf(uid_t user) const {
    EXPECT_EQ(setegid(kGroup), 0);
    EXPECT_EQ(seteuid(user), 0);
    auto daemon = std::make_unique<ScriptedDaemon>(directory_ / wire::kSocketName);
    EXPECT_EQ(seteuid(0), 0);
    EXPECT_EQ(setegid(0), 0);
    daemon->Hello();
    return daemon;
  }
};

TEST_F(DaemonUserTest, IsTaken) {
  const auto daemon = DaemonOf(kDaemon);
  EXPECT_TRUE(RunUntil([&] { return daemon->Receive(); }));
  EXPECT_TRUE(daemon->message.has_dump_request());
}

TEST_F(DaemonUserTest, IsTheOnlyOneOfItsGroup) {
  const auto daemon = DaemonOf(kDaemon + 1);
  EXPECT_TRUE(RunUntil([&] { return daemon->IsClosed(); }));
  EXPECT_EQ(resync_.state(), Resync::State::kDisconnected);
}

TEST_F(ConfigServerTest, RefusesASecondDaemonAndKeepsTheFirst) {
  auto first = AskedDaemon();
  auto second = Daemon();
  second->Hello();
  EXPECT_TRUE(RunUntil([&] { return second->IsClosed(); }));
  first->Begin(first->message.dump_request().id());
  EXPECT_TRUE(RunUntil([&] { return resync_.state() == Resync::State::kReceiving; }));
}

TEST_F(ConfigServerTest, ClosesOnAnotherVersionOfTheProtocol) {
  auto daemon = Daemon();
  daemon->Hello(wire::kVersion + 1);
  ExpectClosed(*daemon);
}

TEST_F(ConfigServerTest, ClosesOnACallBeforeTheGreeting) {
  auto daemon = Daemon();
  daemon->Call(tests::Call(wire::DELETE_INSTANCE, "r1"));
  ExpectClosed(*daemon);
  EXPECT_EQ(resync_.calls(), 0U);
}

TEST_F(ConfigServerTest, ClosesOnASecondGreeting) {
  auto daemon = AskedDaemon();
  daemon->Hello();
  ExpectClosed(*daemon);
}

TEST_F(ConfigServerTest, ClosesOnPendingCommitsBeforeADump) {
  auto daemon = AskedDaemon();
  wire::ClientMessage pending;
  pending.set_commits_pending(true);
  daemon->SendText(pending.SerializeAsString());
  ExpectClosed(*daemon);
}

TEST_F(ConfigServerTest, ClosesOnGarbage) {
  auto daemon = AskedDaemon();
  daemon->SendText("\xff\xff\xff");
  ExpectClosed(*daemon);
}

TEST_F(ConfigServerTest, ClosesOnAPacketOverTheBound) {
  auto daemon = AskedDaemon();
  daemon->SendText(std::string(base::kMaxPacketSize + 1, 'x'));
  ExpectClosed(*daemon);
}

TEST_F(ConfigServerTest, ClosesOnACallAtFault) {
  auto daemon = AskedDaemon();
  daemon->Call(tests::PolicyCall(wire::SET_POLICY, "r1", 9));
  ExpectClosed(*daemon);
  EXPECT_TRUE(resync_.table().instances().empty());
}

TEST_F(ConfigServerTest, ClosesOnADumpThatWasNotAskedFor) {
  auto daemon = AskedDaemon();
  daemon->Begin(daemon->message.dump_request().id() + 1);
  ExpectClosed(*daemon);
  daemon = AskedDaemon();
  daemon->Complete(daemon->message.dump_request().id());
  ExpectClosed(*daemon);
}

TEST_F(ConfigServerTest, WithdrawsAnOutstandingDumpWhenItGoes) {
  auto daemon = AskedDaemon();
  const auto id = daemon->message.dump_request().id();
  server_.reset();
  EXPECT_TRUE(RunUntil([&] { return daemon->Receive(); }));
  EXPECT_EQ(daemon->message.dump_cancel().id(), id);
}

}  // namespace
