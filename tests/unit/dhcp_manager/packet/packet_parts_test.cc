// Where a reply goes, the fields read from a message, and our relay agent information.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "dhcp_manager/packet/dhcp_message.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace {

using base::MacAddress;
using dhcp_manager::GiaddrOf;
using dhcp_manager::MakeRelayAgentInformation;
using dhcp_manager::ReplyTarget;
using dhcp_manager::TargetOf;
using Bytes = std::vector<std::uint8_t>;

constexpr base::MacAddress kMac{2, 0, 0, 0xA0, 0xB0, 0xC0};
constexpr base::MacAddress kAll{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// A reply for the client kMac at 192.0.2.9.
Bytes Reply() {
  Bytes reply(300);
  reply[0] = 2;
  reply[1] = 1;
  reply[2] = 6;
  const Bytes address{192, 0, 2, 9};
  std::copy(address.begin(), address.end(), reply.begin() + 16);
  std::copy(kMac.begin(), kMac.end(), reply.begin() + 28);
  return reply;
}

ReplyTarget TargetOfReply(Bytes reply) {
  return TargetOf({.data = reply.data(), .size = reply.size(), .capacity = reply.size()});
}

void ExpectBroadcast(const Bytes& reply) {
  const ReplyTarget target = TargetOfReply(reply);
  EXPECT_EQ(target.address.to_string(), "255.255.255.255");
  EXPECT_EQ(target.mac, kAll);
}

TEST(ReplyTargetTest, IsTheClientItself) {
  const ReplyTarget target = TargetOfReply(Reply());
  EXPECT_EQ(target.address.to_string(), "192.0.2.9");
  EXPECT_EQ(target.mac, kMac);
}

TEST(ReplyTargetTest, IsEveryoneWhenTheClientAskedForIt) {
  Bytes reply = Reply();
  reply[10] = 0x80;
  ExpectBroadcast(reply);
}

TEST(ReplyTargetTest, LeavesTheOtherFlagsAlone) {
  Bytes reply = Reply();
  reply[10] = 0x7F;
  reply[11] = 0xFF;
  EXPECT_EQ(TargetOfReply(reply).mac, kMac);
}

TEST(ReplyTargetTest, IsEveryoneWithoutAnAddressForTheClient) {
  Bytes reply = Reply();
  std::fill_n(reply.begin() + 16, 4, std::uint8_t{0});
  ExpectBroadcast(reply);
}

TEST(ReplyTargetTest, IsEveryoneWhenTheHardwareIsNotEthernet) {
  Bytes reply = Reply();
  reply[1] = 32;
  ExpectBroadcast(reply);
}

TEST(ReplyTargetTest, IsEveryoneWhenTheHardwareAddressHasAnotherLength) {
  for (const std::uint8_t length : Bytes{0, 5, 7, 16}) {
    Bytes reply = Reply();
    reply[2] = length;
    ExpectBroadcast(reply);
  }
}

// A request with these options, and these at the start of the fields `file` and `sname`.
Bytes RequestWith(const Bytes& options, const Bytes& file = {}, const Bytes& sname = {}) {
  Bytes request(300);
  const Bytes cookie{99, 130, 83, 99};
  std::copy(cookie.begin(), cookie.end(), request.begin() + 236);
  std::copy(options.begin(), options.end(), request.begin() + 240);
  std::copy(file.begin(), file.end(), request.begin() + 108);
  std::copy(sname.begin(), sname.end(), request.begin() + 44);
  return request;
}

bool IsDiscover(const Bytes& message) {
  return dhcp_manager::message::IsDiscover(message.data(), message.size());
}

TEST(DiscoverTest, IsToldByItsMessageType) {
  EXPECT_TRUE(IsDiscover(RequestWith({53, 1, 1, 255})));
  EXPECT_TRUE(IsDiscover(RequestWith({12, 1, 'a', 53, 1, 1, 255})));
  for (const std::uint8_t type : Bytes{0, 2, 3, 4, 7, 8}) {
    EXPECT_FALSE(IsDiscover(RequestWith({53, 1, type, 255}))) << int{type};
  }
  EXPECT_FALSE(IsDiscover(RequestWith({255, 53, 1, 1})));
  EXPECT_FALSE(IsDiscover(RequestWith({53, 0, 1, 255})));
}

TEST(DiscoverTest, IsToldInOverloadedFieldsAndOnlyThere) {
  const Bytes discover{53, 1, 1, 255};
  EXPECT_TRUE(IsDiscover(RequestWith({52, 1, 1, 255}, discover)));
  EXPECT_TRUE(IsDiscover(RequestWith({52, 1, 2, 255}, {}, discover)));
  EXPECT_FALSE(IsDiscover(RequestWith({52, 1, 2, 255}, discover)));
  EXPECT_FALSE(IsDiscover(RequestWith({52, 1, 1, 255}, {}, discover)));
  EXPECT_FALSE(IsDiscover(RequestWith({255}, discover, discover)));
}

TEST(DiscoverTest, PlainBootpIsNone) {
  Bytes request = RequestWith({53, 1, 1, 255});
  request[236] = 0;
  EXPECT_FALSE(IsDiscover(request));
  EXPECT_FALSE(IsDiscover(Bytes(236)));
}

TEST(GiaddrTest, IsReadInNetworkByteOrder) {
  Bytes reply = Reply();
  reply[24] = 10;
  reply[27] = 7;
  EXPECT_EQ(GiaddrOf(reply.data(), reply.size())->to_string(), "10.0.0.7");
  EXPECT_EQ(GiaddrOf(reply.data(), 28)->to_string(), "10.0.0.7");
}

TEST(GiaddrTest, IsMissingFromAShortMessage) {
  const Bytes reply = Reply();
  EXPECT_FALSE(GiaddrOf(reply.data(), 27));
  EXPECT_FALSE(GiaddrOf(reply.data(), 0));
}

// Circuit-id and remote-id as sub-options.
Bytes SubOptions(const std::string& circuit) {
  std::string text;
  text.append("\x01").append(1, static_cast<char>(circuit.size())).append(circuit);
  text.append("\x02\x06").append(kMac.begin(), kMac.end());
  return {text.begin(), text.end()};
}

TEST(RelayAgentInformationTest, NamesInterfaceVlanAndMac) {
  EXPECT_EQ(MakeRelayAgentInformation("l3-5", 5, kMac), SubOptions("l3-5:5"));
  EXPECT_EQ(MakeRelayAgentInformation("l3-5", 4094, kMac), SubOptions("l3-5:4094"));
}

TEST(RelayAgentInformationTest, NamesNoVlanWhereThereIsNone) {
  EXPECT_EQ(MakeRelayAgentInformation("l3-5", std::nullopt, kMac), SubOptions("l3-5"));
}

TEST(RelayAgentInformationTest, CutsANameThatDoesNotFitIntoAnOption) {
  constexpr std::size_t kRoom = 255 - 2 - 8;
  const std::string name(255, 'x');
  EXPECT_EQ(MakeRelayAgentInformation(name, std::nullopt, kMac),
            SubOptions(std::string(kRoom, 'x')));
  EXPECT_EQ(MakeRelayAgentInformation(name, 65535, kMac),
            SubOptions(std::string(kRoom - 6, 'x') + ":65535"));
  EXPECT_EQ(MakeRelayAgentInformation(name, 65535, kMac).size(), 255U);
}

}  // namespace
