// The way of a request, from a scripted ring to scripted sockets.

#include "dhcp_manager/datapath/request_path.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/unit/dhcp_manager/datapath/datapath_fixture.h"
#include "tests/unit/dhcp_manager/datapath/ring_memory.h"

namespace {

using base::TokenBucket;
using dhcp_manager::kBatch;
using dhcp_manager::kMaxBatches;
using dhcp_manager::Outbox;
using tests::BroadcastRequest;
using tests::Bytes;
using tests::kLink;
using tests::kRedLink;
using tests::Request;
using tests::RequestOutcome;
using tests::ToServerPort;
using tests::UnmatchedOutcome;

constexpr std::size_t kOverOneTurn = kMaxBatches * kBatch + 10;

TokenBucket::Clock::time_point now;  // of the flood guard

class RequestPathTest : public tests::DatapathTest {
 protected:
  void Write(const Bytes& packet, int link = kLink) {
    ASSERT_TRUE(kernel_.Write(packet, {.link = link}));
  }
  // Relays what waits, by the configuration as it is now.
  std::size_t Relay(const dhcp_manager::FloodLimits& flood_limits = {}) {
    if (!path_) {
      Apply(flood_limits);
      path_.emplace(*table_, filters_, [] { return now; });
    }
    const std::size_t count = path_->Relay(ring_);
    ExpectCountersAddUp();
    return count;
  }
  std::vector<std::string> Servers() const {
    std::vector<std::string> servers;
    for (const auto& packet : server_socket_.sent) {
      EXPECT_EQ(ntohs(packet.server.sin_port), 67);
      servers.push_back(nettypes::IPv4Addr(packet.server.sin_addr).to_string());
    }
    return servers;
  }

  tests::RingMemory kernel_{kOverOneTurn + 1};
  dhcp_manager::PacketRing ring_{kernel_.memory()};
  dhcp_manager::FilterTable* filters_ = nullptr;
  std::optional<dhcp_manager::RequestPath> path_;
};

TEST_F(RequestPathTest, ARequestGoesToTheServerWithHopAndGiaddr) {
  Write(BroadcastRequest());
  EXPECT_EQ(Relay(), 1U);
  Bytes expected = Request("192.168.5.1");
  expected[3] = 1;
  ASSERT_EQ(server_socket_.sent.size(), 1U);
  EXPECT_EQ(server_socket_.sent[0].bytes, expected);
  EXPECT_EQ(Servers(), std::vector<std::string>{"10.0.0.1"});
  EXPECT_EQ(Interface().requests, 1U);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
  EXPECT_EQ(Server("10.0.0.1").sent, 1U);
  EXPECT_TRUE(red_server_socket_.sent.empty());
}

TEST_F(RequestPathTest, EveryServerGetsACopy) {
  configuration_.AddServer("r1", "10.0.0.2");
  configuration_.AddServer("r1", "10.0.0.3");
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Servers(), (std::vector<std::string>{"10.0.0.1", "10.0.0.2", "10.0.0.3"}));
  EXPECT_EQ(server_socket_.sent[0].bytes, server_socket_.sent[2].bytes);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
}

TEST_F(RequestPathTest, ARequestLeavesByTheSocketOfItsVrf) {
  Write(BroadcastRequest(), kRedLink);
  Relay();
  EXPECT_TRUE(server_socket_.sent.empty());
  ASSERT_EQ(red_server_socket_.sent.size(), 1U);
  EXPECT_EQ(Interface("red", "l3-6").requests, 1U);
  EXPECT_EQ(Interface().requests, 0U);
}

TEST_F(RequestPathTest, ALinkThatNobodyConfiguredIsUnmatched) {
  Write(BroadcastRequest(), 77);
  EXPECT_EQ(Relay(), 1U);
  EXPECT_EQ(Count(UnmatchedOutcome::kNoInterface), 1U);
  EXPECT_TRUE(server_socket_.sent.empty());
}

TEST_F(RequestPathTest, TransitTrafficIsUnmatched) {
  Write(ToServerPort(Request(), "10.9.9.9"));
  Relay();
  EXPECT_EQ(Count(UnmatchedOutcome::kNotForUs), 1U);
  EXPECT_EQ(Interface().requests, 0U);
}

TEST_F(RequestPathTest, ARequestToOurAddressIsRelayed) {
  Write(ToServerPort(Request(), "192.168.5.1"));
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
}

TEST_F(RequestPathTest, BrokenHeadersAreMalformed) {
  Bytes packet = BroadcastRequest();
  packet[25] = 4;  // a UDP length below that of its header
  packet[24] = 0;
  Write(packet);
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kMalformed), 1U);
  EXPECT_TRUE(server_socket_.sent.empty());
}

TEST_F(RequestPathTest, AWrongHeaderChecksumIsMalformedWhateverTheKernelVouchesFor) {
  Bytes packet = BroadcastRequest();
  packet[8] = 63;  // a hop that is missing from the sum
  ASSERT_TRUE(kernel_.Write(packet, {.link = kLink, .status = TP_STATUS_CSUM_VALID, .cut = 0}));
  ASSERT_TRUE(kernel_.Write(packet, {.link = kLink, .status = TP_STATUS_CSUMNOTREADY, .cut = 0}));
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kMalformed), 2U);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
}

TEST_F(RequestPathTest, AWrongChecksumIsMalformedUnlessTheKernelVouchesForIt) {
  Bytes packet = BroadcastRequest();
  packet[26] = packet[27] = 1;
  ASSERT_TRUE(kernel_.Write(packet, {.link = kLink, .status = 0, .cut = 0}));
  ASSERT_TRUE(kernel_.Write(packet, {.link = kLink, .status = TP_STATUS_CSUM_VALID, .cut = 0}));
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kMalformed), 1U);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
}

TEST_F(RequestPathTest, ATruncatedPacketIsMalformed) {
  // What is there looks whole, as padding may have been cut.
  Bytes padded = BroadcastRequest();
  padded.resize(padded.size() + 50);
  ASSERT_TRUE(kernel_.Write(padded, {.link = kLink, .cut = 50}));
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kMalformed), 1U);
}

TEST_F(RequestPathTest, WhatTheRulesDropIsCountedByItsReason) {
  Bytes hops = Request();
  hops[3] = 17;
  Write(ToServerPort(hops, "255.255.255.255"));
  Write(BroadcastRequest("192.168.5.1"));
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kTooManyHops), 1U);
  EXPECT_EQ(Count(RequestOutcome::kOwnGiaddr), 1U);
  EXPECT_TRUE(server_socket_.sent.empty());
}

TEST_F(RequestPathTest, AForeignGiaddrIsDroppedWhereAskedForUnlessTrusted) {
  configuration_.trust.drop_foreign_giaddr = true;
  configuration_.AddInterface("r2", "l3-7", "192.168.7.1");
  configuration_.AddServer("r2", "10.0.0.1");
  configuration_.AddLink(4, "vlan7", "192.168.7.1", 0);
  configuration_.table.Apply(tests::FlagCall(tests::wire::SET_TRUSTED, "r2", true));
  for (const int link : {kLink, 4}) {
    Write(BroadcastRequest("10.9.9.9"), link);
    Write(BroadcastRequest(), link);
  }
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kForeignGiaddr), 1U);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
  EXPECT_EQ(Interface("r2", "l3-7").request_outcomes[0], 2U);
}

TEST_F(RequestPathTest, AnAddressOfAnotherVrfIsNotOurOwn) {
  Write(BroadcastRequest("192.168.6.1"));
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
}

TEST_F(RequestPathTest, OurOptionIsAddedWhereItFitsADatagramOfAnEthernet) {
  configuration_.table.Apply(tests::FlagCall(tests::wire::SET_OPTION, "r1", true));
  Bytes full = Request();
  full.resize(1472);
  full[240] = 55;  // one option of 200 bytes after the other, none of them padding
  for (std::size_t i = 240; i + 202 < full.size(); i += 202) {
    full[i] = 55;
    full[i + 1] = 200;
  }
  full[1450 + 2] = 255;
  full[1471] = 1;
  Write(BroadcastRequest());
  Write(ToServerPort(full, "255.255.255.255"));
  Relay();
  ASSERT_EQ(server_socket_.sent.size(), 2U);
  EXPECT_EQ(server_socket_.sent[0].bytes.at(240), 82);
  EXPECT_EQ(server_socket_.sent[1].bytes.size(), 1472U);
  EXPECT_EQ(Interface().option_left_out, 1U);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 2U);
}

TEST_F(RequestPathTest, AnInstanceWithoutServersDropsAndCounts) {
  configuration_.RemoveServer("r1", "10.0.0.1");
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kNoServer), 1U);
}

TEST_F(RequestPathTest, WithoutASocketOfTheVrfSendingFails) {
  Apply();
  table_->Resolve({});
  path_.emplace(*table_);
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kSendFailed), 1U);
}

TEST_F(RequestPathTest, ARequestThatOneServerGetsIsRelayed) {
  configuration_.AddServer("r1", "10.0.0.2");
  // Of the first request the copy for the first server, of the second that for the second.
  server_socket_.refused = {0, 3};
  Write(BroadcastRequest());
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 2U);
  EXPECT_EQ(Server("10.0.0.1").failed, 1U);
  EXPECT_EQ(Server("10.0.0.1").sent, 1U);
  EXPECT_EQ(Server("10.0.0.2").failed, 1U);
  EXPECT_EQ(Server("10.0.0.2").sent, 1U);
}

TEST_F(RequestPathTest, ARequestThatNoServerGetsHasFailed) {
  configuration_.AddServer("r1", "10.0.0.2");
  server_socket_.refused = {0, 1};
  Write(BroadcastRequest());
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kSendFailed), 1U);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 1U);
}

TEST_F(RequestPathTest, MoreCopiesThanAnOutboxHoldsAllGo) {
  constexpr std::uint32_t kServers = 10;
  for (std::uint32_t i = 2; i <= kServers; ++i) {
    configuration_.AddServer("r1", "10.0.0." + std::to_string(i));
  }
  server_socket_.refused = {300};
  for (std::size_t i = 0; i < kBatch; ++i) Write(BroadcastRequest());
  EXPECT_EQ(Relay(), kBatch);
  EXPECT_GT(kBatch * kServers, Outbox::kCapacity);
  EXPECT_EQ(server_socket_.sent.size(), kBatch * kServers - 1);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), kBatch);
  EXPECT_EQ(Server("10.0.0.1").failed, 1U);
  EXPECT_EQ(Server("10.0.0.10").sent, kBatch);
}

TEST_F(RequestPathTest, ABatchIsSentTogether) {
  for (int i = 0; i < 10; ++i) {
    Write(BroadcastRequest());
    Write(BroadcastRequest(), kRedLink);
  }
  Relay();
  EXPECT_EQ(server_socket_.sends, 1U);
  EXPECT_EQ(red_server_socket_.sends, 1U);
}

TEST_F(RequestPathTest, FramesAreReleasedOnceTheirPacketsAreSent) {
  for (std::size_t i = 0; i < kOverOneTurn; ++i) Write(BroadcastRequest());
  Relay();
  Relay();
  for (std::size_t i = 0; i < kOverOneTurn; ++i) Write(BroadcastRequest());
}

TEST_F(RequestPathTest, OneTurnIsBounded) {
  for (std::size_t i = 0; i < kOverOneTurn; ++i) Write(BroadcastRequest());
  EXPECT_EQ(Relay(), kMaxBatches * kBatch);
  EXPECT_EQ(Relay(), 10U);
  EXPECT_EQ(Relay(), 0U);
  EXPECT_EQ(Count(RequestOutcome::kRelayed), kOverOneTurn);
}

TEST_F(RequestPathTest, TheFloodGuardDropsWhatIsOverTheRate) {
  now = TokenBucket::Clock::now() + std::chrono::hours(1);
  const base::RateLimit limit{.rate = 10, .burst = 2};
  for (int i = 0; i < 3; ++i) Write(BroadcastRequest());
  Write(BroadcastRequest(), kRedLink);
  Relay({.interface = limit});
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 2U);
  EXPECT_EQ(Count(RequestOutcome::kFlood), 1U);
  EXPECT_EQ(red_server_socket_.sent.size(), 1U);
  now += std::chrono::milliseconds(101);
  Write(BroadcastRequest());
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 3U);
  EXPECT_EQ(Count(RequestOutcome::kFlood), 2U);
}

TEST_F(RequestPathTest, AFloodGuardOutlivesAChangeOfTheConfiguration) {
  now = TokenBucket::Clock::now() + std::chrono::hours(1);
  Write(BroadcastRequest());
  Relay({.interface = base::RateLimit{.rate = 1, .burst = 1}});
  configuration_.AddServer("r1", "10.0.0.2");
  counters_.Synchronise(configuration_.table);
  table_->Apply(configuration_.MakeForwarding());
  table_->Resolve({{dhcp_manager::kDefaultVrf, &servers_}});
  Write(BroadcastRequest());
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kFlood), 1U);
}

// A request whose client has that number, with a message type.
Bytes RequestOf(std::uint8_t client, std::uint8_t type) {
  Bytes message = Request();
  message[33] = client;
  const Bytes options{53, 1, type, 255};
  std::copy(options.begin(), options.end(), message.begin() + 240);
  return ToServerPort(message, "255.255.255.255");
}

constexpr std::uint8_t kDiscover = 1;
constexpr std::uint8_t kRequestType = 3;

TEST_F(RequestPathTest, AClientOverItsLimitTakesNothingFromTheOthersOfItsInterface) {
  now = TokenBucket::Clock::now() + std::chrono::hours(1);
  for (int i = 0; i < 5; ++i) Write(RequestOf(1, kRequestType));
  Write(RequestOf(2, kRequestType));
  Write(RequestOf(3, kRequestType));
  Relay({.interface = base::RateLimit{.rate = 1, .burst = 3},
         .discover = std::nullopt,
         .client = base::RateLimit{.rate = 1, .burst = 1}});
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 3U);
  EXPECT_EQ(Count(RequestOutcome::kClientFlood), 4U);
  EXPECT_EQ(Count(RequestOutcome::kFlood), 0U);
}

TEST_F(RequestPathTest, DiscoversOverTheirLimitTakeNothingFromOtherRequests) {
  now = TokenBucket::Clock::now() + std::chrono::hours(1);
  for (std::uint8_t client = 0; client < 5; ++client) Write(RequestOf(client, kDiscover));
  Write(RequestOf(9, kRequestType));
  Write(RequestOf(9, kDiscover), kRedLink);
  Relay({.interface = base::RateLimit{.rate = 1, .burst = 3},
         .discover = base::RateLimit{.rate = 1, .burst = 2},
         .client = std::nullopt});
  EXPECT_EQ(Count(RequestOutcome::kRelayed), 3U);
  EXPECT_EQ(Count(RequestOutcome::kDiscoverFlood), 3U);
  EXPECT_EQ(Count(RequestOutcome::kFlood), 0U);
  EXPECT_EQ(red_server_socket_.sent.size(), 1U);
}

TEST_F(RequestPathTest, MalformedRequestsCountForTheLimitOfTheirInterfaceOnly) {
  now = TokenBucket::Clock::now() + std::chrono::hours(1);
  Bytes packet = RequestOf(1, kDiscover);
  packet[11] ^= 1U;  // the checksum of the header
  Write(packet);
  Write(packet);
  const base::RateLimit limit{.rate = 1, .burst = 1};
  Relay({.interface = limit, .discover = limit, .client = limit});
  EXPECT_EQ(Count(RequestOutcome::kMalformed), 1U);
  EXPECT_EQ(Count(RequestOutcome::kFlood), 1U);
  Bytes runt = Request();
  runt.resize(30);
  Write(ToServerPort(runt, "255.255.255.255"));
  Relay();
  EXPECT_EQ(Count(RequestOutcome::kFlood), 2U);
}

TEST_F(RequestPathTest, TheKernelsFiltersHearWhatWasTakenAndWhenRoomIsFree) {
  const auto memory = std::make_unique<dhcp_manager::FilterMemory>();
  dhcp_manager::FilterTable filters(*memory);
  filters_ = &filters;
  Write(BroadcastRequest());
  Write(BroadcastRequest(), kRedLink);
  Write(BroadcastRequest(), 77);
  memory->admitted = 1000;  // of which the kernel has lost all but three
  Relay();
  EXPECT_EQ(filters.LinkAt(filters.SlotOf(77)).taken, 0U);
  EXPECT_EQ(memory->taken, 1000U);
  memory->admitted += 2;
  Write(BroadcastRequest());
  Write(BroadcastRequest(), kRedLink);
  Relay();
  EXPECT_EQ(filters.LinkAt(filters.SlotOf(kLink)).taken, 1U);
  EXPECT_EQ(filters.LinkAt(filters.SlotOf(kRedLink)).taken, 1U);
  EXPECT_EQ(memory->taken, 1002U);
}

}  // namespace
