// The table and the state as replies of the control protocol.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <string>

#include "base/packet_socket.h"
#include "dhcp_manager/control/state_writer.h"
#include "dhcp_manager/control/table_writer.h"
#include "protocol/control/control.pb.h"
#include "protocol/control/outcome.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/control/scripted_relay.h"

namespace {

namespace control = dhcp_relay::control;
namespace wire = dhcp_relay::wire;
using control::ReplyOutcome;
using control::RequestOutcome;
using control::UnmatchedOutcome;
using dhcp_manager::RelayTable;
using nettypes::IPv4Addr;
using ::testing::ElementsAre;
using tests::AddressCall;
using tests::Call;
using tests::FlagCall;
using tests::PolicyCall;
using tests::VlanCall;
using tests::VrfCall;

constexpr std::uint32_t kServer = 0x0A000001;
constexpr std::uint32_t kAddress = 0xC0A80501;
constexpr int kMany = 5000;

// Joins the pieces of an instance.
template <typename Instance>
void Join(const google::protobuf::RepeatedPtrField<Instance>& pieces,
          google::protobuf::RepeatedPtrField<Instance>& all) {
  for (const Instance& piece : pieces) {
    const bool continues = !all.empty() && all.rbegin()->name() == piece.name();
    (continues ? *all.rbegin() : *all.Add()).MergeFrom(piece);
  }
}

// All replies in one, whose instances are whole.
control::Reply Read(const std::deque<std::string>& replies) {
  control::Reply all;
  for (std::size_t i = 0; i < replies.size(); ++i) {
    EXPECT_LE(replies[i].size(), base::kMaxPacketSize);
    control::Reply reply;
    EXPECT_TRUE(reply.ParseFromString(replies[i]));
    EXPECT_EQ(reply.last(), i + 1 == replies.size());
    Join(reply.instances(), *all.mutable_instances());
    Join(reply.relay_instances(), *all.mutable_relay_instances());
    all.mutable_relay_interfaces()->MergeFrom(reply.relay_interfaces());
    all.mutable_unmatched()->MergeFrom(reply.unmatched());
  }
  return all;
}

TEST(WriteTable, CarriesWhatWasSetAndNothingElse) {
  RelayTable table;
  table.Apply(AddressCall(wire::ADD_SERVER, "r1", kServer));
  table.Apply(PolicyCall(wire::SET_POLICY, "r1", 0));
  table.Apply(VrfCall("r1", 0x01000007));
  table.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  table.Apply(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", true, "l3-5"));
  const auto reply = Read(WriteTable(table));
  ASSERT_EQ(reply.instances_size(), 1);
  EXPECT_EQ(reply.instances(0).ShortDebugString(),
            "name: \"r1\" servers: 167772161 settings { policy: \"drop\" } vrf: 16777223 "
            "interfaces { name: \"l3-5\" vlan: 5 } "
            "overrides { name: \"l3-5\" settings { check: true } }");
}

TEST(WriteTable, IsOneReplyForAnEmptyTable) {
  const auto replies = WriteTable(RelayTable());
  EXPECT_EQ(replies.size(), 1U);
  EXPECT_EQ(Read(replies).instances_size(), 0);
}

TEST(WriteTable, OfThousandsOfInstancesIsWhole) {
  RelayTable table;
  for (int i = 0; i < kMany; ++i) {
    const std::string name = "relay-" + std::to_string(i);
    table.Apply(AddressCall(wire::ADD_SERVER, name, kServer));
    table.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, name, "l3-" + std::to_string(i), 7));
  }
  const auto replies = WriteTable(table);
  EXPECT_GT(replies.size(), 1U);
  const auto reply = Read(replies);
  ASSERT_EQ(reply.instances_size(), kMany);
  for (const auto& instance : reply.instances()) {
    EXPECT_EQ(instance.servers_size(), 1);
    EXPECT_EQ(instance.interfaces_size(), 1);
  }
}

TEST(WriteTable, OfOneInstanceWithThousandsOfPartsIsWhole) {
  RelayTable table;
  table.Apply(FlagCall(wire::SET_CHECK, "r1", true));
  for (std::uint32_t i = 0; i < kMany; ++i) {
    const std::string name = "l3-" + std::string(200, 'x') + std::to_string(i);
    table.Apply(AddressCall(wire::ADD_SERVER, "r1", kServer + i));
    table.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", name, i));
    table.Apply(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", true, name));
  }
  table.Apply(FlagCall(wire::SET_CHECK, "r2", true));
  const auto reply = Read(WriteTable(table));
  ASSERT_EQ(reply.instances_size(), 2);
  const auto& instance = reply.instances(0);
  EXPECT_EQ(instance.servers_size(), kMany);
  EXPECT_EQ(instance.interfaces_size(), kMany);
  EXPECT_EQ(instance.overrides_size(), kMany);
  EXPECT_TRUE(instance.settings().check());
}

class WriteStateTest : public ::testing::Test {
 protected:
  WriteStateTest() { table_.Apply(AddressCall(wire::ADD_SERVER, "r1", kServer)); }

  void AddInterface(const std::string& name) {
    table_.Apply(Call(wire::ADD_L3_INTERFACE, "r1", name));
  }

  control::Reply Written() {
    relay_.Use(table_);
    return Read(WriteState(relay_));
  }

  RelayTable table_;
  tests::ScriptedRelay relay_;
};

TEST_F(WriteStateTest, CarriesStateAndSettingsByName) {
  table_.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  table_.Apply(AddressCall(wire::SET_L3_INTERFACE_ADDRESS, "r1", kAddress, "l3-5"));
  table_.Apply(PolicyCall(wire::SET_IF_OPTION_POLICY, "r1", 2, "l3-5"));
  AddInterface("l3-6");
  const auto reply = Written();
  ASSERT_EQ(reply.relay_interfaces_size(), 2);
  EXPECT_EQ(reply.relay_interfaces(0).ShortDebugString(),
            "instance: \"r1\" name: \"l3-5\" vlan: 5 address: 3232236801 state: \"missing\" "
            "settings { check: false trusted: false option: false policy: \"replace\" }");
  EXPECT_EQ(reply.relay_interfaces(1).state(), "no-address");
  EXPECT_EQ(reply.relay_interfaces(1).settings().policy(), "keep");
}

TEST_F(WriteStateTest, CarriesTheCountersThatAreNotZero) {
  AddInterface("l3-5");
  relay_.Use(table_);
  auto& interface = relay_.counts.Interface("r1", "l3-5");
  interface.requests = 3;
  interface.Count(RequestOutcome::kFlood);
  interface.Count(RequestOutcome::kRelayed);
  interface.Count(RequestOutcome::kFlood);
  interface.option_left_out = 1;
  interface.replies = 1;
  interface.Count(ReplyOutcome::kForeignOption);
  relay_.counts.Server("r1", IPv4Addr::from_host_order(kServer)).sent = 1;
  relay_.counts.unmatched().Count(UnmatchedOutcome::kNotForUs);
  auto reply = Written();
  auto& written = *reply.mutable_relay_interfaces(0);
  written.clear_settings();
  EXPECT_EQ(written.ShortDebugString(),
            "instance: \"r1\" name: \"l3-5\" state: \"no-address\" requests: 3 "
            "request_outcomes { outcome: \"relayed\" count: 1 } "
            "request_outcomes { outcome: \"flood\" count: 2 } option_left_out: 1 replies: 1 "
            "reply_outcomes { outcome: \"foreign-option\" count: 1 }");
  EXPECT_EQ(reply.relay_instances(0).ShortDebugString(),
            "name: \"r1\" servers { address: 167772161 sent: 1 }");
  EXPECT_EQ(reply.unmatched().ShortDebugString(),
            "received: 1 outcomes { outcome: \"not-for-us\" count: 1 }");
}

TEST_F(WriteStateTest, TellsThatTheVrfIsMissing) {
  table_.Apply(VrfCall("r1", 0x01000007));
  EXPECT_TRUE(Written().relay_instances(0).vrf_missing());
}

TEST_F(WriteStateTest, OfThousandsOfInterfacesAndServersIsWhole) {
  for (std::uint32_t i = 0; i < kMany; ++i) {
    AddInterface("l3-" + std::string(200, 'x') + std::to_string(i));
    table_.Apply(AddressCall(wire::ADD_SERVER, "r1", kServer + i));
  }
  table_.Apply(VrfCall("r1", 0x01000007));
  const auto reply = Written();
  ASSERT_EQ(reply.relay_instances_size(), 1);
  EXPECT_EQ(reply.relay_instances(0).servers_size(), kMany);
  EXPECT_TRUE(reply.relay_instances(0).vrf_missing());
  EXPECT_EQ(reply.relay_interfaces_size(), kMany);
}

TEST_F(WriteStateTest, OfNamesThatAreNotUtf8IsWhole) {
  AddInterface("l3-\xff");
  dhcp_manager::Links links;
  auto& link = links.links[2];
  link.index = 2;
  link.name = "eth\xff";
  links.addresses.emplace_back().link = 2;
  links.addresses.back().address = IPv4Addr::from_host_order(kAddress);
  table_.Apply(AddressCall(wire::SET_L3_INTERFACE_ADDRESS, "r1", kAddress, "l3-\xff"));
  relay_.Use(table_, links);
  const auto reply = Read(WriteState(relay_));
  ASSERT_EQ(reply.relay_interfaces_size(), 1);
  EXPECT_EQ(reply.relay_interfaces(0).name(), "l3-\xff");
  EXPECT_EQ(reply.relay_interfaces(0).link(), "eth\xff");
}

}  // namespace
