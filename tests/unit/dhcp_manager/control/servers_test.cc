// The manager's two ends on a real loop, with scripted peers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "dhcp_manager/control/config_server.h"
#include "dhcp_manager/control/control_server.h"
#include "dhcp_manager/relay.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/control/control.pb.h"
#include "protocol/control/socket_name.h"
#include "tests/support/calls.h"
#include "tests/support/loop.h"

namespace {

namespace fs = std::filesystem;
namespace wire = dhcp_relay::wire;
namespace control = dhcp_relay::control;
using dhcp_manager::ConfigServer;
using dhcp_manager::ControlServer;
using dhcp_manager::Journal;
using dhcp_manager::Resync;

// A peer of one of the sockets.
class Peer {
 public:
  explicit Peer(const fs::path& path) : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0)) {
    const sockaddr_un address = base::SocketAddress(path);
    connected =
        connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  }

  template <typename Message>
  void Send(const Message& out) {
    SendText(out.SerializeAsString());
  }
  void SendText(const std::string& text) { base::SendPacket(fd_.get(), text); }

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
  void Call(const wire::Call& call) {
    wire::ClientMessage out;
    *out.mutable_calls()->add_calls() = call;
    Send(out);
  }

  // Takes one packet if there is one.
  bool Receive() {
    const auto result = reader_.Receive(fd_.get());
    if (result == base::PacketReader::Result::kClosed) closed = true;
    if (result != base::PacketReader::Result::kPacket) return false;
    reader_.Parse(message);
    return true;
  }
  bool ReceiveReply(control::Reply& reply) {
    const auto result = reader_.Receive(fd_.get());
    if (result == base::PacketReader::Result::kClosed) closed = true;
    if (result != base::PacketReader::Result::kPacket) return false;
    reader_.Parse(reply);
    return true;
  }

  bool connected = false;
  bool closed = false;
  wire::ManagerMessage message;

 private:
  base::Descriptor fd_;
  base::PacketReader reader_;
};

class ServerTest : public ::testing::Test {
 protected:
  ServerTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    journal_ = Journal(directory_ / "journal");
    server_ = std::make_unique<ConfigServer>(mw_, directory_, resync_, journal_);
    control_ = std::make_unique<ControlServer>(mw_, directory_, resync_, *relay_);
  }
  ~ServerTest() override {
    control_.reset();
    server_.reset();
    relay_.reset();
    vxmw_finish(&mw_);
    fs::remove_all(directory_);
  }

  bool RunUntil(const std::function<bool()>& condition) { return tests::RunUntil(mw_, condition); }

  std::unique_ptr<Peer> Daemon() { return std::make_unique<Peer>(directory_ / wire::kSocketName); }
  std::unique_ptr<Peer> Operator() {
    return std::make_unique<Peer>(directory_ / control::kSocketName);
  }

  // A daemon that was asked for a dump; its number is in message.
  std::unique_ptr<Peer> AskedDaemon() {
    auto daemon = Daemon();
    daemon->Hello();
    EXPECT_TRUE(RunUntil([&] { return daemon->Receive(); }));
    EXPECT_TRUE(daemon->message.has_dump_request());
    return daemon;
  }

  void ExpectClosed(Peer& peer) {
    EXPECT_TRUE(RunUntil([&] {
      peer.Receive();
      return peer.closed;
    }));
    EXPECT_EQ(resync_.state(), Resync::State::kDisconnected);
  }

  fs::path directory_;
  vxmw_t* mw_ = vxmw_init("server_test");
  Resync resync_;
  Journal journal_;
  std::unique_ptr<dhcp_manager::Relay> relay_ = std::make_unique<dhcp_manager::Relay>(
      mw_, dhcp_manager::Sockets(), resync_, dhcp_manager::VrfDevices(), std::nullopt);
  std::unique_ptr<ConfigServer> server_;
  std::unique_ptr<ControlServer> control_;
};

TEST_F(ServerTest, AsksEveryDaemonForADump) {
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

TEST_F(ServerTest, WritesTheJournalBeforeTheTurnEnds) {
  auto daemon = AskedDaemon();
  daemon->Call(tests::Call(wire::DELETE_INSTANCE, "r1"));
  EXPECT_TRUE(RunUntil([&] { return resync_.calls() == 1; }));
  std::ostringstream content;
  content << std::ifstream(directory_ / "journal").rdbuf();
  EXPECT_EQ(content.str(), "DeleteInstance r1\n");
}

TEST_F(ServerTest, TakesManyPackets) {
  auto daemon = AskedDaemon();
  for (std::uint32_t i = 0; i < 2000; ++i) {
    daemon->Call(tests::AddressCall(wire::ADD_SERVER, "r1", 0x0A000000 + i));
    if (i % 100 == 99) RunUntil([&] { return resync_.calls() == i + 1; });
  }
  EXPECT_EQ(resync_.table().instances().at("r1").servers.size(), 2000U);
}

TEST_F(ServerTest, RefusesASecondDaemonAndKeepsTheFirst) {
  auto first = AskedDaemon();
  auto second = Daemon();
  second->Hello();
  EXPECT_TRUE(RunUntil([&] {
    second->Receive();
    return second->closed;
  }));
  first->Begin(first->message.dump_request().id());
  EXPECT_TRUE(RunUntil([&] { return resync_.state() == Resync::State::kReceiving; }));
}

TEST_F(ServerTest, ClosesOnAnotherVersionOfTheProtocol) {
  auto daemon = Daemon();
  daemon->Hello(wire::kVersion + 1);
  ExpectClosed(*daemon);
}

TEST_F(ServerTest, ClosesOnACallBeforeTheGreeting) {
  auto daemon = Daemon();
  daemon->Call(tests::Call(wire::DELETE_INSTANCE, "r1"));
  ExpectClosed(*daemon);
  EXPECT_EQ(resync_.calls(), 0U);
}

TEST_F(ServerTest, ClosesOnASecondGreeting) {
  auto daemon = AskedDaemon();
  daemon->Hello();
  ExpectClosed(*daemon);
}

TEST_F(ServerTest, ClosesOnGarbage) {
  auto daemon = AskedDaemon();
  daemon->SendText("\xff\xff\xff");
  ExpectClosed(*daemon);
}

TEST_F(ServerTest, ClosesOnAPacketOverTheBound) {
  auto daemon = AskedDaemon();
  daemon->SendText(std::string(base::kMaxPacketSize + 1, 'x'));
  ExpectClosed(*daemon);
}

TEST_F(ServerTest, ClosesOnACallAtFault) {
  auto daemon = AskedDaemon();
  daemon->Call(tests::PolicyCall(wire::SET_POLICY, "r1", 9));
  ExpectClosed(*daemon);
  EXPECT_TRUE(resync_.table().instances().empty());
}

TEST_F(ServerTest, ClosesOnADumpThatWasNotAskedFor) {
  auto daemon = AskedDaemon();
  daemon->Begin(daemon->message.dump_request().id() + 1);
  ExpectClosed(*daemon);
  daemon = AskedDaemon();
  daemon->Complete(daemon->message.dump_request().id());
  ExpectClosed(*daemon);
}

TEST_F(ServerTest, WithdrawsAnOutstandingDumpWhenItGoes) {
  auto daemon = AskedDaemon();
  const auto id = daemon->message.dump_request().id();
  server_.reset();
  EXPECT_TRUE(RunUntil([&] { return daemon->Receive(); }));
  EXPECT_EQ(daemon->message.dump_cancel().id(), id);
}

TEST_F(ServerTest, TakesThePlaceOfADeadManagersSocketOnly) {
  EXPECT_THROW(ConfigServer(mw_, directory_, resync_, journal_), base::ConnectionError);
  server_.reset();
  EXPECT_FALSE(fs::exists(directory_ / wire::kSocketName));
  {
    // A socket whose process is gone.
    const base::Descriptor dead(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    const sockaddr_un address = base::SocketAddress(directory_ / wire::kSocketName);
    ASSERT_EQ(bind(dead.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  ASSERT_TRUE(fs::exists(directory_ / wire::kSocketName));
  server_ = std::make_unique<ConfigServer>(mw_, directory_, resync_, journal_);
  EXPECT_TRUE(Daemon()->connected);
}

TEST_F(ServerTest, LeavesAFileThatIsNoSocketAlone) {
  server_.reset();
  std::ofstream(directory_ / wire::kSocketName) << "precious";
  EXPECT_THROW(ConfigServer(mw_, directory_, resync_, journal_), std::system_error);
  EXPECT_TRUE(fs::exists(directory_ / wire::kSocketName));
}

TEST_F(ServerTest, AnswersAnOperatorWhileAnotherDoesNotRead) {
  for (std::uint32_t i = 0; i < 50000; ++i) {
    resync_.Apply(tests::FlagCall(wire::SET_CHECK, "relay-" + std::to_string(i), true));
  }
  control::Request table;
  table.set_kind(control::Request::TABLE);
  auto slow = Operator();
  slow->Send(table);
  auto other = Operator();
  control::Request status;
  status.set_kind(control::Request::STATUS);
  other->Send(status);
  control::Reply reply;
  EXPECT_TRUE(RunUntil([&] { return other->ReceiveReply(reply); }));
  EXPECT_EQ(reply.status().calls(), 50000U);

  // And the slow one gets all of it in the end.
  int instances = 0;
  EXPECT_TRUE(RunUntil([&] {
    while (slow->ReceiveReply(reply)) instances += reply.instances_size();
    return reply.last() && instances > 0;
  }));
  EXPECT_EQ(instances, 50000);
}

TEST_F(ServerTest, ClosesOnAnUnknownRequest) {
  auto peer = Operator();
  peer->Send(control::Request());
  control::Reply reply;
  EXPECT_TRUE(RunUntil([&] {
    peer->ReceiveReply(reply);
    return peer->closed;
  }));
}

}  // namespace
