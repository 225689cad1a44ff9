// The table and the state as answers of the control protocol.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "dhcp_manager/control/answer.h"
#include "dhcp_manager/control/state_answer.h"
#include "dhcp_manager/control/status_answer.h"
#include "dhcp_manager/control/table_answer.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
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
using dhcp_manager::Answer;
using dhcp_manager::RelayTable;
using dhcp_manager::Resync;
using dhcp_manager::StateAnswer;
using dhcp_manager::TableAnswer;
using nettypes::IPv4Addr;
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

// Far more than a reply and its last item take.
constexpr std::size_t kMaxReply = 16 * 1024;

// Adds the next reply of an answer to those before it.
void ReadNext(Answer& answer, control::Reply& all) {
  const std::string packet = answer.Next();
  EXPECT_LE(packet.size(), kMaxReply);
  control::Reply reply;
  EXPECT_TRUE(reply.ParseFromString(packet));
  EXPECT_EQ(reply.last(), answer.complete());
  Join(reply.instances(), *all.mutable_instances());
  Join(reply.relay_instances(), *all.mutable_relay_instances());
  all.mutable_relay_interfaces()->MergeFrom(reply.relay_interfaces());
  all.mutable_unmatched()->MergeFrom(reply.unmatched());
  all.mutable_kernel_drops()->MergeFrom(reply.kernel_drops());
  all.set_changed(reply.changed());
}

void ReadRest(Answer& answer, control::Reply& all) {
  while (!answer.complete()) ReadNext(answer, all);
}

// All replies in one, whose instances are whole.
control::Reply Read(Answer&& answer) {
  control::Reply all;
  ReadRest(answer, all);
  EXPECT_FALSE(all.changed());
  return all;
}

control::Reply ReadTable(const Resync& resync) { return Read(TableAnswer(resync)); }

TEST(TableAnswerTest, CarriesWhatWasSetAndNothingElse) {
  Resync resync;
  resync.Apply(AddressCall(wire::ADD_SERVER, "r1", kServer));
  resync.Apply(PolicyCall(wire::SET_POLICY, "r1", 0));
  resync.Apply(VrfCall("r1", 0x01000007));
  resync.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  resync.Apply(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", true, "l3-5"));
  const auto reply = ReadTable(resync);
  ASSERT_EQ(reply.instances_size(), 1);
  EXPECT_EQ(reply.instances(0).ShortDebugString(),
            "name: \"r1\" servers: 167772161 settings { policy: \"drop\" } vrf: 16777223 "
            "interfaces { name: \"l3-5\" vlan: 5 } "
            "overrides { name: \"l3-5\" settings { check: true } }");
}

TEST(TableAnswerTest, IsOneReplyForAnEmptyTable) {
  const Resync resync;
  TableAnswer answer(resync);
  control::Reply reply;
  ReadNext(answer, reply);
  EXPECT_TRUE(answer.complete());
  EXPECT_EQ(reply.instances_size(), 0);
}

TEST(TableAnswerTest, OfThousandsOfInstancesIsWhole) {
  Resync resync;
  for (int i = 0; i < kMany; ++i) {
    const std::string name = "relay-" + std::to_string(i);
    resync.Apply(AddressCall(wire::ADD_SERVER, name, kServer));
    resync.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, name, "l3-" + std::to_string(i), 7));
  }
  const auto reply = ReadTable(resync);
  ASSERT_EQ(reply.instances_size(), kMany);
  for (const auto& instance : reply.instances()) {
    EXPECT_EQ(instance.servers_size(), 1);
    EXPECT_EQ(instance.interfaces_size(), 1);
  }
}

TEST(TableAnswerTest, OfOneInstanceWithThousandsOfPartsIsWhole) {
  Resync resync;
  resync.Apply(FlagCall(wire::SET_CHECK, "r1", true));
  for (std::uint32_t i = 0; i < kMany; ++i) {
    const std::string name = "l3-" + std::string(200, 'x') + std::to_string(i);
    resync.Apply(AddressCall(wire::ADD_SERVER, "r1", kServer + i));
    resync.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", name, i));
    resync.Apply(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", true, name));
  }
  resync.Apply(FlagCall(wire::SET_CHECK, "r2", true));
  const auto reply = ReadTable(resync);
  ASSERT_EQ(reply.instances_size(), 2);
  const auto& instance = reply.instances(0);
  EXPECT_EQ(instance.servers_size(), kMany);
  EXPECT_EQ(instance.interfaces_size(), kMany);
  EXPECT_EQ(instance.overrides_size(), kMany);
  EXPECT_TRUE(instance.settings().check());
}

// Adds instances, each with a server and an interface.
void AddInstances(int count, Resync& resync) {
  for (int i = 0; i < count; ++i) {
    const std::string name = "relay-" + std::to_string(i);
    resync.Apply(AddressCall(wire::ADD_SERVER, name, kServer));
    resync.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, name, "l3-" + std::to_string(i), 7));
  }
}

std::vector<std::string> NamesOf(const control::Reply& reply) {
  std::vector<std::string> names;
  for (const auto& instance : reply.instances()) names.push_back(instance.name());
  return names;
}

TEST(TableAnswerTest, TellsEachInstanceOnceThatIsThereAllTheTime) {
  Resync resync;
  AddInstances(kMany, resync);
  TableAnswer answer(resync);
  control::Reply reply;
  ReadNext(answer, reply);
  const std::string in_hand = NamesOf(reply).back();
  resync.Apply(Call(wire::DELETE_INSTANCE, in_hand));
  resync.Apply(Call(wire::DELETE_INSTANCE, "relay-0"));
  resync.Apply(Call(wire::DELETE_INSTANCE, "relay-999"));
  resync.Apply(FlagCall(wire::SET_CHECK, "zebra", true));
  ReadRest(answer, reply);
  EXPECT_TRUE(reply.changed());
  const auto names = NamesOf(reply);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kMany));  // one has gone, one has come
  EXPECT_EQ(names.back(), "zebra");
  EXPECT_EQ(std::count(names.begin(), names.end(), "relay-999"), 0);
}

TEST(TableAnswerTest, GoesOnInTheTableOfADump) {
  Resync resync;
  AddInstances(kMany, resync);
  TableAnswer answer(resync);
  control::Reply reply;
  ReadNext(answer, reply);
  const auto before = NamesOf(reply).size();
  const auto dump = resync.Connected();
  EXPECT_TRUE(resync.BeginDump(dump));
  resync.Apply(FlagCall(wire::SET_CHECK, "zebra", true));
  EXPECT_TRUE(resync.CompleteDump(dump));
  ReadRest(answer, reply);
  EXPECT_TRUE(reply.changed());
  EXPECT_EQ(NamesOf(reply).size(), before + 1);
  EXPECT_EQ(NamesOf(reply).back(), "zebra");
}

class StateAnswerTest : public ::testing::Test {
 protected:
  StateAnswerTest() { table_.Apply(AddressCall(wire::ADD_SERVER, "r1", kServer)); }

  void AddInterface(const std::string& name) {
    table_.Apply(Call(wire::ADD_L3_INTERFACE, "r1", name));
  }

  control::Reply Written() {
    relay_.Use(table_);
    return Read(StateAnswer(relay_));
  }

  RelayTable table_;
  tests::ScriptedRelay relay_;
};

TEST_F(StateAnswerTest, CarriesStateAndSettingsByName) {
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

TEST_F(StateAnswerTest, CarriesTheCountersThatAreNotZero) {
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
  relay_.counts.kernel_drops() = {.requests = 7, .replies = 0, .link_events = 2};
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
  EXPECT_EQ(reply.kernel_drops().ShortDebugString(), "requests: 7 replies: 0 link_events: 2");
}

TEST_F(StateAnswerTest, TellsThatTheVrfIsMissing) {
  table_.Apply(VrfCall("r1", 0x01000007));
  EXPECT_TRUE(Written().relay_instances(0).vrf_missing());
}

class SocketStateTest : public StateAnswerTest {
 protected:
  // The interface of an instance in the default VRF, which has the reason for having no socket.
  control::RelayInterface Interface(bool up) {
    dhcp_manager::Links links;
    links.SetLink({.index = 2, .name = "vlan2", .up = up, .vrf_table = {}});
    links.SetAddress({.link = 2, .address = IPv4Addr::from_host_order(kAddress), .broadcast = {}});
    table_.Apply(AddressCall(wire::SET_L3_INTERFACE_ADDRESS, "r1", kAddress, "l3-5"));
    relay_.failures = {{dhcp_manager::kDefaultVrf, "Address already in use"}};
    relay_.Use(table_, links);
    return Read(StateAnswer(relay_)).relay_interfaces(0);
  }
};

TEST_F(SocketStateTest, AnInterfaceThatIsUpHasNoSocketForAReason) {
  const control::RelayInterface interface = Interface(true);
  EXPECT_EQ(interface.state(), "no-socket");
  EXPECT_EQ(interface.reason(), "Address already in use");
}

TEST_F(SocketStateTest, OneThatIsDownIsDown) {
  const control::RelayInterface interface = Interface(false);
  EXPECT_EQ(interface.state(), "down");
  EXPECT_EQ(interface.reason(), "");
}

TEST(StatusAnswerTest, OfThousandsOfVrfsWithoutASocketIsWhole) {
  tests::ScriptedRelay relay;
  for (int i = 0; i < kMany; ++i) {
    relay.socket_faults.missing.push_back(
        {.vrf_device = "vrf-" + std::to_string(i), .reason = "Address already in use"});
  }
  relay.socket_faults.competing.resize(kMany);
  const Resync resync;
  const dhcp_manager::Journal journal;
  dhcp_manager::StatusAnswer answer(resync, journal, relay);
  control::Status status;
  while (!answer.complete()) {
    const std::string packet = answer.Next();
    EXPECT_LE(packet.size(), kMaxReply);
    control::Reply reply;
    EXPECT_TRUE(reply.ParseFromString(packet));
    status.MergeFrom(reply.status());
  }
  ASSERT_EQ(status.missing_sockets_size(), kMany);
  EXPECT_EQ(status.missing_sockets(kMany - 1).vrf_device(), "vrf-" + std::to_string(kMany - 1));
  EXPECT_EQ(status.competing_sockets_size(), kMany);
}

TEST_F(StateAnswerTest, OfThousandsOfInterfacesAndServersIsWhole) {
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

TEST_F(StateAnswerTest, OfNamesThatAreNotUtf8IsWhole) {
  AddInterface("l3-\xff");
  dhcp_manager::Links links;
  links.SetLink({.index = 2, .name = "eth\xff", .vrf_table = std::nullopt});
  links.SetAddress(
      {.link = 2, .address = IPv4Addr::from_host_order(kAddress), .broadcast = IPv4Addr()});
  table_.Apply(AddressCall(wire::SET_L3_INTERFACE_ADDRESS, "r1", kAddress, "l3-\xff"));
  relay_.Use(table_, links);
  const auto reply = Read(StateAnswer(relay_));
  ASSERT_EQ(reply.relay_interfaces_size(), 1);
  EXPECT_EQ(reply.relay_interfaces(0).name(), "l3-\xff");
  EXPECT_EQ(reply.relay_interfaces(0).link(), "eth\xff");
}

TEST_F(StateAnswerTest, TellsNoInterfaceWithoutItsInstance) {
  for (int i = 0; i < kMany; ++i) AddInterface("l3-" + std::to_string(i));
  table_.Apply(Call(wire::ADD_L3_INTERFACE, "r2", "l3-7"));
  relay_.Use(table_);
  StateAnswer answer(relay_);
  control::Reply reply;
  ReadNext(answer, reply);
  table_.Apply(Call(wire::DELETE_INSTANCE, "r1"));
  table_.Apply(Call(wire::ADD_L3_INTERFACE, "r0", "l3-6"));
  relay_.Use(table_);
  ReadRest(answer, reply);
  EXPECT_TRUE(reply.changed());
  ASSERT_EQ(reply.relay_instances_size(), 2);
  EXPECT_EQ(reply.relay_instances(0).name(), "r1");
  EXPECT_EQ(reply.relay_instances(1).name(), "r2");
  EXPECT_LT(reply.relay_interfaces_size(), kMany);
  EXPECT_EQ(reply.relay_interfaces().rbegin()->instance(), "r2");
  EXPECT_EQ(std::next(reply.relay_interfaces().rbegin())->instance(), "r1");
}

TEST_F(StateAnswerTest, IsOfBoundedPieces) {
  for (int i = 0; i < kMany; ++i) AddInterface("l3-" + std::to_string(i));
  relay_.Use(table_);
  StateAnswer answer(relay_);
  control::Reply reply;
  int pieces = 0;
  for (; !answer.complete(); ++pieces) {
    const int before = reply.relay_interfaces_size();
    ReadNext(answer, reply);
    EXPECT_LT(reply.relay_interfaces_size() - before, 300);
  }
  EXPECT_GT(pieces, 10);
}

}  // namespace
