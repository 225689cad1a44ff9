// The packet relay as a whole on a real loop, with scripted sockets.

#include "dhcp_manager/datapath/packet_relay.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

#include <vxmw/vxmw.h>

#include "tests/support/loop.h"
#include "tests/unit/dhcp_manager/datapath/datapath_fixture.h"
#include "tests/unit/dhcp_manager/datapath/scripted_opener.h"
#include "tests/unit/dhcp_manager/datapath/scripted_routes.h"

namespace {

using dhcp_manager::PacketRelay;
using tests::BroadcastRequest;
using tests::Ip;
using tests::kLink;
using tests::kRedLink;

class PacketRelayTest : public ::testing::Test {
 protected:
  ~PacketRelayTest() override {
    relay_.reset();
    vxmw_finish(&mw_);
  }

  void Apply() {
    counters_.Synchronise(configuration_.table);
    relay_->Apply(configuration_.MakeForwarding());
  }
  void RequestArrives(int link) {
    ASSERT_TRUE(opener_.ring.Write(BroadcastRequest(), {.link = link}));
    opener_.client.Set();
  }
  void ReplyArrives(const std::string& device, const std::string& giaddr) {
    opener_.vrfs[device].socket.incoming.push_back(
        {.bytes = tests::Reply(giaddr), .from = Ip("10.0.0.1")});
    opener_.vrfs[device].Set();
  }
  std::size_t SentToServers(const std::string& device) {
    return opener_.vrfs[device].socket.sent.size();
  }
  bool RunUntil(const std::function<bool()>& condition) {
    return tests::RunUntil(mw_, [&] {
      // The loop has had its turn at the ring, as an emptied packet socket is not readable.
      opener_.client.Clear();
      return condition();
    });
  }

  vxmw_t* mw_ = vxmw_init("packet_relay_test");
  tests::Configuration configuration_;
  tests::ScriptedOpener opener_;
  dhcp_manager::Counters counters_;
  tests::ScriptedRoutes routes_;
  int opened_ = 0;
  std::unique_ptr<PacketRelay> relay_ =
      std::make_unique<PacketRelay>(mw_, opener_, counters_, routes_, dhcp_manager::FloodLimits{},
                                    PacketRelay::Events{.on_opened = [this] { ++opened_; },
                                                        .on_failure = [](const std::string&) {}});
};

TEST_F(PacketRelayTest, CountsWhatTheKernelRefusesOnItsInterface) {
  Apply();
  auto& red = opener_.filters->links[dhcp_manager::FilterTable::SlotOf(kRedLink)];
  red.runts = 3;
  red.over_share = 4;
  opener_.filters->links[77].over_share = 2;  // of a link that relays for nobody
  opener_.filters->refused = 9;
  relay_->CollectKernelCounts();
  relay_->CollectKernelCounts();
  const auto& counters = counters_.Interface("red", "l3-6");
  EXPECT_EQ(counters.requests, 7U);
  EXPECT_EQ(counters.request_outcomes[static_cast<std::size_t>(tests::RequestOutcome::kMalformed)],
            3U);
  EXPECT_EQ(counters.request_outcomes[static_cast<std::size_t>(tests::RequestOutcome::kOverShare)],
            4U);
  EXPECT_EQ(counters_.unmatched().received, 2U);
  EXPECT_EQ(counters_.Interface("r1", "l3-5").requests, 0U);
}

TEST_F(PacketRelayTest, WhatWasRefusedBeforeALinkGoesCountsOnTheInterfaceThatHadIt) {
  Apply();
  opener_.filters->links[dhcp_manager::FilterTable::SlotOf(kRedLink)].runts = 3;
  opener_.filters->refused = 3;
  configuration_.links.TakeChanges();
  configuration_.links.RemoveLink(kRedLink);
  const auto changes = configuration_.links.TakeChanges();
  EXPECT_EQ(relay_->Update(configuration_.links, changes).interfaces, 1U);
  relay_->CollectKernelCounts();
  EXPECT_EQ(counters_.Interface("red", "l3-6").requests, 3U);
  EXPECT_EQ(counters_.unmatched().received, 0U);
}

TEST_F(PacketRelayTest, CountsWhatTheKernelDropsWithoutWhatItsFiltersRefuse) {
  Apply();
  opener_.client.drops = 5;
  opener_.vrfs[""].drops = 6;
  opener_.vrfs["red"].drops = 7;
  opener_.filters->refused_datagrams = 3;
  relay_->CollectKernelCounts();
  EXPECT_EQ(counters_.kernel_drops().requests, 5U);
  EXPECT_EQ(counters_.kernel_drops().replies, 10U);
  // Refused, and not yet counted by the socket.
  opener_.filters->refused_datagrams = 5;
  relay_->CollectKernelCounts();
  EXPECT_EQ(counters_.kernel_drops().replies, 10U);
  counters_.Clear();
  opener_.vrfs[""].drops = 3;
  relay_->CollectKernelCounts();
  EXPECT_EQ(counters_.kernel_drops().requests, 0U);
  EXPECT_EQ(counters_.kernel_drops().replies, 1U);
}

TEST_F(PacketRelayTest, RelaysRequestsAndRepliesOfEveryVrf) {
  Apply();
  RequestArrives(kLink);
  RequestArrives(kRedLink);
  EXPECT_TRUE(RunUntil([this] { return SentToServers("") == 1 && SentToServers("red") == 1; }));
  ReplyArrives("", "192.168.5.1");
  ReplyArrives("red", "192.168.6.1");
  EXPECT_TRUE(RunUntil([this] { return opener_.client.socket.sent.size() == 2; }));
}

TEST_F(PacketRelayTest, RelaysThroughASocketThatOpensLate) {
  opener_.vrf_errors["red"] = 1;
  Apply();
  RequestArrives(kRedLink);
  const auto& counters = counters_.Interface("red", "l3-6");
  ASSERT_TRUE(RunUntil([&] { return counters.requests == 1; }));
  EXPECT_EQ(counters.request_outcomes[static_cast<std::size_t>(tests::RequestOutcome::kSendFailed)],
            1U);
  ASSERT_TRUE(RunUntil([this] { return opener_.open == 3; }));
  EXPECT_EQ(opened_, 1);
  RequestArrives(kRedLink);
  EXPECT_TRUE(RunUntil([this] { return SentToServers("red") == 1; }));
}

TEST_F(PacketRelayTest, RelaysUnderLoadByPolling) {
  Apply();
  std::size_t sent = 0;
  // Enough wake-ups for polling to begin; the sockets are not readable from then on.
  ASSERT_TRUE(RunUntil([&] {
    if (SentToServers("") < sent) return false;
    if (sent == 100) return true;
    RequestArrives(kLink);
    ++sent;
    return false;
  }));
  ReplyArrives("", "192.168.5.1");
  EXPECT_TRUE(RunUntil([this] { return opener_.client.socket.sent.size() == 1; }));
  // A socket without packets costs nothing.
  EXPECT_EQ(opener_.vrfs["red"].socket.receives, 0U);
}

TEST_F(PacketRelayTest, AsksTheRoutesOfTheSocketsVrf) {
  Apply();
  tests::ScriptedSocket& servers = opener_.vrfs["red"].socket;
  const auto arrives = [&] {
    servers.incoming.push_back(
        {.bytes = tests::Reply("192.168.6.1"), .from = Ip("10.0.0.1"), .link = kRedLink});
    opener_.vrfs["red"].Set();
  };
  routes_.routes = {{0, Ip("10.0.0.1"), kRedLink}};
  arrives();
  ASSERT_TRUE(RunUntil([this] { return routes_.questions == 1; }));
  EXPECT_TRUE(opener_.client.socket.sent.empty());
  routes_.routes = {{tests::kRedVrf, Ip("10.0.0.1"), kRedLink}};
  arrives();
  EXPECT_TRUE(RunUntil([this] { return opener_.client.socket.sent.size() == 1; }));
}

TEST_F(PacketRelayTest, RelaysByTheNewestForwarding) {
  Apply();
  configuration_.table.Apply(tests::Call(tests::wire::DELETE_INSTANCE, "r1"));
  Apply();
  EXPECT_EQ(relay_->forwarding().instances().size(), 1U);
  RequestArrives(kLink);
  EXPECT_TRUE(RunUntil([this] { return counters_.unmatched().received == 1; }));
  EXPECT_EQ(SentToServers(""), 0U);
}

}  // namespace
