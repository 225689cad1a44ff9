// The operator's end of the manager, with scripted programs.

#include "dhcp_manager/control/control_server.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "dhcp_manager/control/seats.h"
#include "dhcp_manager/table/journal.h"
#include "protocol/control/control.pb.h"
#include "protocol/control/socket_name.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/control/scripted_relay.h"
#include "tests/unit/dhcp_manager/control/server_fixture.h"

namespace {

namespace control = dhcp_relay::control;
namespace wire = dhcp_relay::wire;
using std::chrono::milliseconds;

// Their table does not fit a socket.
constexpr int kInstances = 50000;

// So that a connection is closed for another reason, if at all.
constexpr milliseconds kEndless = std::chrono::hours(1);

class ControlServerTest : public tests::ServerTest {
 protected:
  std::unique_ptr<tests::Peer> Connect() const {
    return std::make_unique<tests::Peer>(directory_ / control::kSocketName);
  }

  static void Ask(tests::Peer& peer, control::Request::Kind kind) {
    control::Request request;
    request.set_kind(kind);
    peer.Send(request);
  }

  void ExpectClosed(tests::Peer& peer) {
    EXPECT_TRUE(RunUntil([&] { return peer.IsClosed<control::Reply>(); }));
  }

  dhcp_manager::Journal journal_;
  tests::ScriptedRelay relay_;
  std::unique_ptr<dhcp_manager::ControlServer> MakeServer(std::chrono::milliseconds patience) {
    return std::make_unique<dhcp_manager::ControlServer>(mw_, Socket(control::kSocketName), resync_,
                                                         journal_, relay_, patience);
  }
  void FillTable() {
    for (int i = 0; i < kInstances; ++i) {
      resync_.Apply(tests::FlagCall(wire::SET_CHECK, "relay-" + std::to_string(i), true));
    }
  }

  std::unique_ptr<dhcp_manager::ControlServer> server_ = MakeServer(kEndless);
};

TEST_F(ControlServerTest, AnswersARequestAfterTheOther) {
  const auto peer = Connect();
  control::Reply reply;
  for (std::uint64_t calls = 1; calls < 4; ++calls) {
    resync_.Apply(tests::FlagCall(wire::SET_CHECK, "r1", true));
    Ask(*peer, control::Request::STATUS);
    ASSERT_TRUE(RunUntil([&] { return peer->Receive(reply); }));
    EXPECT_EQ(reply.status().calls(), calls);
  }
}

TEST_F(ControlServerTest, AnswersOneWhileAnotherDoesNotRead) {
  FillTable();
  const auto slow = Connect();
  Ask(*slow, control::Request::TABLE);
  const auto other = Connect();
  Ask(*other, control::Request::STATUS);
  control::Reply reply;
  EXPECT_TRUE(RunUntil([&] { return other->Receive(reply); }));
  EXPECT_EQ(reply.status().calls(), kInstances);

  // And the slow one gets all of it in the end.
  int instances = 0;
  EXPECT_TRUE(RunUntil([&] {
    while (slow->Receive(reply)) instances += reply.instances_size();
    return reply.last() && instances > 0;
  }));
  EXPECT_EQ(instances, kInstances);
}

TEST_F(ControlServerTest, ClosesOnARequestBeforeTheAnswerIsRead) {
  FillTable();
  const auto peer = Connect();
  Ask(*peer, control::Request::TABLE);
  Ask(*peer, control::Request::TABLE);
  ExpectClosed(*peer);
}

TEST_F(ControlServerTest, ClosesOnAnUnknownRequest) {
  const auto peer = Connect();
  Ask(*peer, static_cast<control::Request::Kind>(77));
  ExpectClosed(*peer);
}

TEST_F(ControlServerTest, ClosesOnGarbage) {
  const auto peer = Connect();
  peer->SendText("\xff\xff\xff");
  ExpectClosed(*peer);
}

TEST_F(ControlServerTest, ClosesOnARequestThatIsTooLong) {
  const auto peer = Connect();
  control::Request request;
  request.set_kind(control::Request::STATUS);
  // A field that is not known here: number 15, 1,000 bytes.
  peer->SendText(request.SerializeAsString() + "\x7a\xe8\x07" + std::string(1000, 'x'));
  ExpectClosed(*peer);
}

TEST_F(ControlServerTest, RefusesMoreThanItsNumberOfProgramsOfOneUser) {
  std::vector<std::unique_ptr<tests::Peer>> peers;
  control::Reply reply;
  for (std::size_t i = 0; i < dhcp_manager::Seats::kPerUser; ++i) {
    Ask(*peers.emplace_back(Connect()), control::Request::STATUS);
    ASSERT_TRUE(RunUntil([&] { return peers.back()->Receive(reply); }));
  }
  ExpectClosed(*Connect());
  // And takes another once one has gone.
  peers.pop_back();
  std::unique_ptr<tests::Peer> peer;
  EXPECT_TRUE(RunUntil([&] {
    if (!peer) {
      peer = Connect();
      Ask(*peer, control::Request::STATUS);
    }
    if (peer->Receive(reply)) return true;
    if (peer->IsClosed<control::Reply>()) peer.reset();
    return false;
  }));
}

TEST_F(ControlServerTest, DropsAProgramThatAsksForNothing) {
  server_.reset();
  server_ = MakeServer(milliseconds(20));
  ExpectClosed(*Connect());
}

TEST_F(ControlServerTest, DropsAProgramThatDoesNotReadItsAnswer) {
  server_.reset();
  server_ = MakeServer(milliseconds(200));
  FillTable();
  const auto slow = Connect();
  Ask(*slow, control::Request::TABLE);
  EXPECT_TRUE(RunUntil([&] { return slow->HasHungUp(); }));
  // It got what fitted its socket, and not the end.
  control::Reply reply;
  while (slow->Receive(reply)) EXPECT_FALSE(reply.last());
}

TEST_F(ControlServerTest, KeepsASlowProgramThatReads) {
  server_.reset();
  server_ = MakeServer(milliseconds(1000));
  FillTable();
  const auto slow = Connect();
  Ask(*slow, control::Request::TABLE);
  control::Reply reply;
  int instances = 0;
  // One packet in each turn of the test.
  EXPECT_TRUE(RunUntil([&] {
    if (slow->Receive(reply)) instances += reply.instances_size();
    return reply.last();
  }));
  EXPECT_EQ(instances, kInstances);
}

TEST_F(ControlServerTest, AnswersBehindPackets) {
  FillTable();
  const base::Descriptor packets(eventfd(1, EFD_CLOEXEC));
  std::size_t turns = 0;
  const vxmw::IoSource busy(mw_, packets.get(), EPOLLIN, [&](std::uint32_t) { ++turns; });
  const auto peer = Connect();
  Ask(*peer, control::Request::TABLE);
  control::Reply reply;
  std::size_t replies = 0;
  ASSERT_TRUE(RunUntil([&] {
    while (peer->Receive(reply)) ++replies;
    return reply.last();
  }));
  // At least one turn of packets before each piece of the answer.
  EXPECT_GT(turns, replies);
}

}  // namespace
