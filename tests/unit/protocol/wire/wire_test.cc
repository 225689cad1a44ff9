#include "protocol/wire/wire.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/runtime_directory.h"
#include "tests/support/calls.h"

namespace {

using base::ConnectionError;
using base::Descriptor;
using base::PacketReader;
using base::SendPacket;
using base::SendResult;
using dhcp_relay::wire::Fault;
using dhcp_relay::wire::FindOperation;
using dhcp_relay::wire::OperationInfo;
using dhcp_relay::wire::Operations;
using dhcp_relay::wire::ValueKind;
using ::testing::HasSubstr;
using ::testing::Optional;

dhcp_relay::wire::Call GoodCall(const OperationInfo& info) {
  auto call = tests::Call(info.operation, "r1", info.has_name ? "l3-5" : "");
  switch (info.value) {
    case ValueKind::kNone:
      break;
    case ValueKind::kAddress:
      call.set_address(1);
      break;
    case ValueKind::kVlan:
      call.set_vlan(1);
      break;
    case ValueKind::kIdentifier:
      call.set_identifier(0);
      break;
    case ValueKind::kFlag:
      call.set_flag(false);
      break;
    case ValueKind::kPolicy:
      call.set_policy(2);
      break;
  }
  return call;
}

TEST(WireCall, OfEveryOperationIsFoundByItsNumber) {
  ASSERT_EQ(Operations().size(), 19U);
  for (const OperationInfo& info : Operations()) EXPECT_EQ(FindOperation(info.operation), &info);
  EXPECT_EQ(FindOperation(dhcp_relay::wire::OPERATION_NONE), nullptr);
  EXPECT_EQ(FindOperation(static_cast<dhcp_relay::wire::Operation>(20)), nullptr);
}

TEST(WireCall, AsItsOperationWantsItHasNoFault) {
  for (const OperationInfo& info : Operations()) {
    EXPECT_EQ(Fault(GoodCall(info)), std::nullopt) << info.name;
  }
}

TEST(WireCall, WithoutAnOperationIsAtFault) {
  EXPECT_THAT(Fault(tests::Call(dhcp_relay::wire::OPERATION_NONE, "r1")),
              Optional(HasSubstr("unknown operation")));
}

TEST(WireCall, WithABadNameIsAtFault) {
  for (const OperationInfo& info : Operations()) {
    for (const std::string& bad : {std::string(), std::string(256, 'a')}) {
      auto call = GoodCall(info);
      call.set_instance(bad);
      EXPECT_THAT(Fault(call), Optional(HasSubstr("name"))) << info.name;
      if (!info.has_name) continue;
      call = GoodCall(info);
      call.set_name(bad);
      EXPECT_THAT(Fault(call), Optional(HasSubstr("name"))) << info.name;
    }
    auto call = GoodCall(info);
    call.set_instance(std::string(255, 'a'));
    EXPECT_EQ(Fault(call), std::nullopt) << info.name;
  }
}

TEST(WireCall, WithANameThatItsOperationDoesNotTakeIsAtFault) {
  EXPECT_NE(Fault(tests::Call(dhcp_relay::wire::DELETE_INSTANCE, "r1", "l3-5")), std::nullopt);
}

TEST(WireCall, WithTheWrongKindOfArgumentIsAtFault) {
  for (const OperationInfo& info : Operations()) {
    auto call = GoodCall(info);
    if (info.value == ValueKind::kFlag) {
      call.set_vlan(1);
    } else {
      call.set_flag(true);
    }
    EXPECT_THAT(Fault(call), Optional(HasSubstr("argument"))) << info.name;
  }
}

TEST(WireCall, WithAnImpossiblePolicyOrVlanIsAtFault) {
  EXPECT_THAT(Fault(tests::PolicyCall(dhcp_relay::wire::SET_POLICY, "r1", 3)),
              Optional(HasSubstr("policy 3")));
  EXPECT_THAT(Fault(tests::VlanCall(dhcp_relay::wire::SET_L3_INTERFACE_VLAN, "r1", "i", 65536)),
              Optional(HasSubstr("65536")));
}

class Packets : public ::testing::Test {
 protected:
  Packets() {
    std::array<int, 2> fds{};
    socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds.data());
    ours_ = Descriptor(fds[0]);
    theirs_ = Descriptor(fds[1]);
  }

  Descriptor ours_;
  Descriptor theirs_;
  PacketReader reader_;
};

TEST_F(Packets, ArriveAsTheyWereSent) {
  dhcp_relay::wire::ClientMessage message;
  message.mutable_dump_begin()->set_id(7);
  ASSERT_EQ(SendPacket(theirs_.get(), message.SerializeAsString()), SendResult::kSent);
  ASSERT_EQ(reader_.Receive(ours_.get()), PacketReader::Result::kPacket);
  dhcp_relay::wire::ClientMessage received;
  reader_.Parse(received);
  EXPECT_EQ(received.dump_begin().id(), 7U);
  EXPECT_EQ(reader_.Receive(ours_.get()), PacketReader::Result::kNothing);
}

TEST_F(Packets, ThatAreNoMessageAreRefused) {
  SendPacket(theirs_.get(), "\xff\xff\xff\xff");
  ASSERT_EQ(reader_.Receive(ours_.get()), PacketReader::Result::kPacket);
  dhcp_relay::wire::ClientMessage message;
  EXPECT_THROW(reader_.Parse(message), ConnectionError);
}

TEST_F(Packets, OverTheBoundAreRefused) {
  SendPacket(theirs_.get(), std::string(base::kMaxPacketSize, 'x'));
  EXPECT_EQ(reader_.Receive(ours_.get()), PacketReader::Result::kPacket);
  SendPacket(theirs_.get(), std::string(base::kMaxPacketSize + 1, 'x'));
  EXPECT_THROW(reader_.Receive(ours_.get()), ConnectionError);
}

TEST_F(Packets, EndWithThePeer) {
  theirs_ = Descriptor();
  EXPECT_EQ(reader_.Receive(ours_.get()), PacketReader::Result::kClosed);
  EXPECT_EQ(SendPacket(ours_.get(), "x"), SendResult::kLost);
}

TEST_F(Packets, TellTheUserOfThePeer) {
  EXPECT_EQ(base::PeerUser(ours_.get()), getuid());
  EXPECT_EQ(base::PeerUser(-1), std::nullopt);
}

TEST(SocketAddress, RefusesAPathThatDoesNotFit) {
  EXPECT_STREQ(base::SocketAddress("/run/x").sun_path, "/run/x");
  EXPECT_THROW(base::SocketAddress("/" + std::string(200, 'x')), ConnectionError);
}

TEST(RuntimeDirectory, IsTheEnvironmentsOrTheSystems) {
  setenv("DHCP_MANAGER_DIR", "/somewhere", 1);
  EXPECT_EQ(base::RuntimeDirectory(), "/somewhere");
  unsetenv("DHCP_MANAGER_DIR");
  EXPECT_EQ(base::RuntimeDirectory(), "/run/dhcp-manager");
}

TEST(Descriptor, ClosesWhatItHolds) {
  std::array<int, 2> fds{};
  ASSERT_EQ(pipe(fds.data()), 0);
  Descriptor writer(fds[1]);
  {
    Descriptor reader(fds[0]);
    Descriptor moved(std::move(reader));
    EXPECT_FALSE(static_cast<bool>(reader));  // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(static_cast<bool>(moved));
  }
  EXPECT_EQ(fcntl(fds[0], F_GETFD), -1);
}

}  // namespace
