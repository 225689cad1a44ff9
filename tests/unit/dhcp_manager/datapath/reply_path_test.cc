// The way of a reply, from a scripted socket to a scripted socket.

#include "dhcp_manager/datapath/reply_path.h"

#include <gtest/gtest.h>
#include <linux/if_ether.h>

#include <string>

#include "dhcp_manager/datapath/headers.h"
#include "tests/unit/dhcp_manager/datapath/datapath_fixture.h"
#include "tests/unit/dhcp_manager/datapath/scripted_routes.h"

namespace {

using dhcp_manager::kBatch;
using dhcp_manager::kDefaultVrf;
using dhcp_manager::kHeadersSize;
using dhcp_manager::kMaxBatches;
using tests::Bytes;
using tests::Ip;
using tests::kClientMac;
using tests::kLink;
using tests::kRedLink;
using tests::kRedVrf;
using tests::Reply;
using tests::ReplyOutcome;
using tests::UnmatchedOutcome;

const Bytes kAllOnes(6, 0xFF);

class ReplyPathTest : public tests::DatapathTest {
 protected:
  void Arrives(const Bytes& reply, const std::string& from = "10.0.0.1", bool truncated = false) {
    server_socket_.incoming.push_back({.bytes = reply, .from = Ip(from), .truncated = truncated});
  }
  // Relays what waits, by the configuration as it is now.
  std::size_t Relay(dhcp_manager::VrfIfindex vrf = kDefaultVrf) {
    if (!path_) {
      Apply();
      path_.emplace(*table_, routes_);
    }
    const std::size_t count = path_->Relay(vrf, server_socket_, clients_);
    ExpectCountersAddUp();
    EXPECT_TRUE(clients_.empty());
    return count;
  }
  static Bytes MacOf(const tests::ScriptedSocket::Sent& packet) {
    EXPECT_EQ(packet.client.sll_halen, 6);
    return {packet.client.sll_addr, packet.client.sll_addr + 6};
  }
  static Bytes Slice(const Bytes& bytes, std::size_t from, std::size_t to) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
            bytes.begin() + static_cast<std::ptrdiff_t>(to)};
  }

  tests::ScriptedRoutes routes_;
  tests::ScriptedSocket client_socket_;
  dhcp_manager::Outbox clients_{client_socket_};
  std::optional<dhcp_manager::ReplyPath> path_;
};

Bytes ReplyFor(const std::string& giaddr, const Bytes& yiaddr) {
  Bytes reply = Reply(giaddr);
  std::copy(yiaddr.begin(), yiaddr.end(), reply.begin() + 16);
  return reply;
}

TEST_F(ReplyPathTest, AReplyGoesToTheClientOutOfTheInterfaceOfGiaddr) {
  const Bytes reply = ReplyFor("192.168.5.1", {192, 168, 5, 77});
  Arrives(reply);
  EXPECT_EQ(Relay(), 1U);
  ASSERT_EQ(client_socket_.sent.size(), 1U);
  const auto& sent = client_socket_.sent[0];
  EXPECT_EQ(sent.client.sll_family, AF_PACKET);
  EXPECT_EQ(ntohs(sent.client.sll_protocol), ETH_P_IP);
  EXPECT_EQ(sent.client.sll_ifindex, kLink);
  EXPECT_EQ(MacOf(sent), kClientMac);
  EXPECT_EQ(Slice(sent.bytes, 12, 24), (Bytes{192, 168, 5, 1, 192, 168, 5, 77, 0, 67, 0, 68}));
  EXPECT_EQ(Slice(sent.bytes, kHeadersSize, sent.bytes.size()), reply);
  EXPECT_EQ(Interface().replies, 1U);
  EXPECT_EQ(Count(ReplyOutcome::kRelayed), 1U);
  EXPECT_EQ(Server("10.0.0.1").replies, 1U);
}

TEST_F(ReplyPathTest, AReplyWithoutAnAddressIsBroadcast) {
  Arrives(Reply("192.168.5.1"));
  Relay();
  ASSERT_EQ(client_socket_.sent.size(), 1U);
  EXPECT_EQ(MacOf(client_socket_.sent[0]), kAllOnes);
  EXPECT_EQ(Slice(client_socket_.sent[0].bytes, 16, 20), (Bytes{255, 255, 255, 255}));
}

TEST_F(ReplyPathTest, GiaddrIsLookedUpInTheVrfOfTheSocket) {
  Arrives(Reply("192.168.6.1"));
  Relay();
  EXPECT_EQ(Count(UnmatchedOutcome::kUnknownGiaddr), 1U);
  Arrives(Reply("192.168.6.1"));
  Relay(kRedVrf);
  ASSERT_EQ(client_socket_.sent.size(), 1U);
  EXPECT_EQ(client_socket_.sent[0].client.sll_ifindex, kRedLink);
}

TEST_F(ReplyPathTest, AForeignGiaddrIsUnmatched) {
  Arrives(Reply("10.9.9.9"));
  Relay();
  EXPECT_EQ(Count(UnmatchedOutcome::kUnknownGiaddr), 1U);
  EXPECT_TRUE(client_socket_.sent.empty());
}

TEST_F(ReplyPathTest, ADatagramWithoutGiaddrIsUnmatched) {
  Arrives(Bytes(27, 2));
  Arrives({});
  Relay();
  EXPECT_EQ(Count(UnmatchedOutcome::kMalformed), 2U);
}

TEST_F(ReplyPathTest, WhatTheRulesDropIsCountedByItsReason) {
  configuration_.table.Apply(tests::FlagCall(tests::wire::SET_OPTION, "r1", true));
  configuration_.table.Apply(tests::FlagCall(tests::wire::SET_CHECK, "r1", true));
  Arrives(Reply("192.168.5.1"));
  Bytes cut = Reply("192.168.5.1");
  cut.resize(235);
  Arrives(cut);
  Relay();
  EXPECT_EQ(Count(ReplyOutcome::kNoOption), 1U);
  EXPECT_EQ(Count(ReplyOutcome::kMalformed), 1U);
  EXPECT_TRUE(client_socket_.sent.empty());
}

TEST_F(ReplyPathTest, ATruncatedReplyIsMalformed) {
  Arrives(Reply("192.168.5.1"), "10.0.0.1", true);
  Relay();
  EXPECT_EQ(Count(ReplyOutcome::kMalformed), 1U);
  EXPECT_EQ(Server("10.0.0.1").replies, 1U);
}

TEST_F(ReplyPathTest, AServerThatIsNotConfiguredIsRelayedButNotCounted) {
  Arrives(Reply("192.168.5.1"), "10.0.0.99");
  Relay();
  EXPECT_EQ(Count(ReplyOutcome::kRelayed), 1U);
  EXPECT_EQ(Server("10.0.0.1").replies, 0U);
}

// A second VLAN of the instance, whose clients are the victims of those of the first.
class ReplyTrustTest : public ReplyPathTest {
 protected:
  static constexpr int kVictimLink = 4;

  ReplyTrustTest() {
    configuration_.AddInterface("r1", "l3-7", "192.168.7.1");
    configuration_.AddLink(kVictimLink, "vlan7", "192.168.7.1", 0);
    routes_.routes = {{kDefaultVrf, Ip("10.0.0.1"), tests::kUplink}};
  }

  void ArrivesThrough(int link, const std::string& from, const Bytes& reply) {
    server_socket_.incoming.push_back({.bytes = reply, .from = Ip(from), .link = link});
  }
  void ArrivesThrough(int link, const std::string& from) {
    ArrivesThrough(link, from, Reply("192.168.7.1"));
  }
  const dhcp_manager::InterfaceCounters& Victim() { return Interface("r1", "l3-7"); }
  std::uint64_t CountOfVictim(ReplyOutcome outcome) {
    return Victim().reply_outcomes[static_cast<std::size_t>(outcome)];
  }
};

TEST_F(ReplyTrustTest, AClientCannotAnswerForAServer) {
  ArrivesThrough(kLink, "192.168.5.66");
  ArrivesThrough(kVictimLink, "192.168.7.66");
  Relay();
  EXPECT_TRUE(client_socket_.sent.empty());
  EXPECT_EQ(Count(ReplyOutcome::kClientSide), 1U) << "counted where it came in";
  EXPECT_EQ(CountOfVictim(ReplyOutcome::kClientSide), 1U);
  EXPECT_EQ(Victim().replies, 1U);
}

TEST_F(ReplyTrustTest, ABorrowedAddressDoesNotHelp) {
  ArrivesThrough(kLink, "10.0.0.1");
  Relay();
  EXPECT_TRUE(client_socket_.sent.empty());
  EXPECT_EQ(Count(ReplyOutcome::kClientSide), 1U);
  EXPECT_EQ(Server("10.0.0.1").replies, 0U);
}

TEST_F(ReplyTrustTest, AForgedOption82DoesNotHelp) {
  configuration_.table.Apply(tests::FlagCall(tests::wire::SET_OPTION, "r1", true));
  configuration_.table.Apply(tests::FlagCall(tests::wire::SET_CHECK, "r1", true));
  Apply();
  path_.emplace(*table_, routes_);
  const auto* const victim = table_->forwarding().FindByAddress(kDefaultVrf, Ip("192.168.7.1"));
  const Bytes option = victim->relay.relay_agent_information;
  Bytes reply = Reply("192.168.7.1");
  reply.resize(240);
  reply.insert(reply.end(), {82, static_cast<std::uint8_t>(option.size())});
  reply.insert(reply.end(), option.begin(), option.end());
  reply.push_back(255);
  ArrivesThrough(kLink, "10.0.0.1", reply);
  ArrivesThrough(tests::kUplink, "10.0.0.1", reply);
  Relay();
  EXPECT_EQ(Count(ReplyOutcome::kClientSide), 1U);
  EXPECT_EQ(CountOfVictim(ReplyOutcome::kRelayed), 1U) << "the option was right";
}

TEST_F(ReplyTrustTest, AServerAmongClientsAnswersThroughTheLinkThatItsRouteNames) {
  routes_.routes = {{kDefaultVrf, Ip("10.0.0.1"), kLink}};
  ArrivesThrough(kLink, "10.0.0.1");
  ArrivesThrough(kVictimLink, "10.0.0.1");
  Relay();
  EXPECT_EQ(CountOfVictim(ReplyOutcome::kRelayed), 1U);
  EXPECT_EQ(CountOfVictim(ReplyOutcome::kClientSide), 1U);
  EXPECT_EQ(client_socket_.sent.size(), 1U);
  EXPECT_EQ(Server("10.0.0.1").replies, 1U);
}

TEST_F(ReplyTrustTest, AServerOfAnotherInstanceIsNone) {
  configuration_.AddInterface("r2", "l3-9", "192.168.9.1");
  configuration_.AddServer("r2", "10.0.0.9");
  routes_.routes = {{kDefaultVrf, Ip("10.0.0.9"), kLink}};
  ArrivesThrough(kLink, "10.0.0.9");
  Relay();
  EXPECT_EQ(Count(ReplyOutcome::kClientSide), 1U);
  EXPECT_TRUE(client_socket_.sent.empty());
}

TEST_F(ReplyTrustTest, WithoutALinkNothingIsTaken) {
  ArrivesThrough(0, "10.0.0.1");
  Relay();
  EXPECT_EQ(CountOfVictim(ReplyOutcome::kClientSide), 1U);
  EXPECT_TRUE(client_socket_.sent.empty());
}

TEST_F(ReplyTrustTest, RoutesAreAskedOnlyForServersOnLinksThatServeClients) {
  ArrivesThrough(tests::kUplink, "10.0.0.1");
  ArrivesThrough(tests::kUplink, "10.0.0.99");
  ArrivesThrough(kLink, "10.0.0.99");
  Relay();
  EXPECT_EQ(routes_.questions, 0U);
  ArrivesThrough(kLink, "10.0.0.1");
  Relay();
  EXPECT_EQ(routes_.questions, 1U);
}

TEST_F(ReplyTrustTest, WithServersOnlyAnotherSenderIsUnknown) {
  configuration_.trust.servers_only = true;
  ArrivesThrough(tests::kUplink, "10.0.0.99");
  ArrivesThrough(tests::kUplink, "10.0.0.1");
  ArrivesThrough(kLink, "10.0.0.99");
  Relay();
  EXPECT_EQ(CountOfVictim(ReplyOutcome::kUnknownServer), 1U);
  EXPECT_EQ(CountOfVictim(ReplyOutcome::kRelayed), 1U);
  EXPECT_EQ(Count(ReplyOutcome::kClientSide), 1U);
  EXPECT_EQ(client_socket_.sent.size(), 1U);
}

TEST_F(ReplyPathTest, WhatTheSocketRefusesHasFailed) {
  client_socket_.refused = {1};
  for (int i = 0; i < 3; ++i) Arrives(Reply("192.168.5.1"));
  Relay();
  EXPECT_EQ(Count(ReplyOutcome::kRelayed), 2U);
  EXPECT_EQ(Count(ReplyOutcome::kSendFailed), 1U);
}

TEST_F(ReplyPathTest, ABatchIsSentTogether) {
  for (std::size_t i = 0; i < kBatch; ++i) Arrives(Reply("192.168.5.1"));
  EXPECT_EQ(Relay(), kBatch);
  EXPECT_EQ(client_socket_.sends, 1U);
}

TEST_F(ReplyPathTest, OneTurnIsBounded) {
  for (std::size_t i = 0; i < kMaxBatches * kBatch + 10; ++i) Arrives(Reply("192.168.5.1"));
  EXPECT_EQ(Relay(), kMaxBatches * kBatch);
  EXPECT_EQ(Relay(), 10U);
  EXPECT_EQ(Relay(), 0U);
  EXPECT_EQ(Count(ReplyOutcome::kRelayed), kMaxBatches * kBatch + 10);
}

}  // namespace
