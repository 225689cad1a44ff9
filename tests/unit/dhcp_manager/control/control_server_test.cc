// The operator's end of the manager, with scripted programs.

#include "dhcp_manager/control/control_server.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "protocol/control/control.pb.h"
#include "protocol/control/socket_name.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/control/scripted_relay.h"
#include "tests/unit/dhcp_manager/control/server_fixture.h"

namespace {

namespace control = dhcp_relay::control;
namespace wire = dhcp_relay::wire;

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

  tests::ScriptedRelay relay_;
  dhcp_manager::ControlServer server_{mw_, directory_, resync_, relay_};
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
  constexpr int kInstances = 50000;
  for (int i = 0; i < kInstances; ++i) {
    resync_.Apply(tests::FlagCall(wire::SET_CHECK, "relay-" + std::to_string(i), true));
  }
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
  for (int i = 0; i < 50000; ++i) {
    resync_.Apply(tests::FlagCall(wire::SET_CHECK, "relay-" + std::to_string(i), true));
  }
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

TEST_F(ControlServerTest, RefusesMoreThanItsNumberOfProgramsAtOnce) {
  std::vector<std::unique_ptr<tests::Peer>> peers;
  control::Reply reply;
  for (int i = 0; i < 64; ++i) {
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

}  // namespace
