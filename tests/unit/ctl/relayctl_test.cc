// What the operator's command reads from the manager, and how it prints it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "base/packet_socket.h"
#include "ctl/render.h"
#include "dhcp_manager/control/table_writer.h"
#include "dhcp_manager/table/relay_table.h"
#include "protocol/control/control.pb.h"
#include "protocol/wire/wire.h"
#include "tests/support/calls.h"

namespace {

namespace wire = dhcp_relay::wire;
namespace control = dhcp_relay::control;
using dhcp_manager::RelayTable;
using tests::AddressCall;
using tests::Call;
using tests::FlagCall;
using tests::PolicyCall;
using tests::VlanCall;
using tests::VrfCall;

// As the command joins them.
std::vector<control::Instance> Join(const std::deque<std::string>& replies) {
  std::vector<control::Instance> table;
  for (std::size_t i = 0; i < replies.size(); ++i) {
    EXPECT_LE(replies[i].size(), base::kMaxPacketSize);
    control::Reply reply;
    EXPECT_TRUE(reply.ParseFromString(replies[i]));
    EXPECT_EQ(reply.last(), i + 1 == replies.size());
    for (const auto& instance : reply.instances()) {
      if (!table.empty() && table.back().name() == instance.name()) {
        table.back().MergeFrom(instance);
      } else {
        table.push_back(instance);
      }
    }
  }
  return table;
}

TEST(TableAsJson, IsOneLineInAFixedOrder) {
  RelayTable table;
  table.Apply(AddressCall(wire::ADD_SERVER, "r1", 0x0A000001));
  table.Apply(FlagCall(wire::SET_CHECK, "r1", false));
  table.Apply(FlagCall(wire::SET_TRUSTED, "r1", true));
  table.Apply(FlagCall(wire::SET_OPTION, "r1", true));
  table.Apply(PolicyCall(wire::SET_POLICY, "r1", 0));
  table.Apply(VrfCall("r1", 0x01000007));
  table.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  table.Apply(AddressCall(wire::SET_L3_INTERFACE_ADDRESS, "r1", 0xC0A80101, "l3-5"));
  table.Apply(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", true, "l3-5"));
  table.Apply(FlagCall(wire::SET_IF_OPTION_TRUSTED, "r1", false, "l3-5"));
  table.Apply(FlagCall(wire::SET_IF_OPTION_OPTION, "r1", false, "l3-5"));
  table.Apply(PolicyCall(wire::SET_IF_OPTION_POLICY, "r1", 1, "l3-5"));
  EXPECT_EQ(relayctl::TableAsJson(Join(WriteTable(table))),
            R"({"instances":[{"name":"r1","servers":["10.0.0.1"],"check":false,"trusted":true,)"
            R"("option":true,"policy":"drop","vrf":"0x01000007",)"
            R"("interfaces":[{"name":"l3-5","vlan":5,"address":"192.168.1.1"}],)"
            R"("if_options":[{"name":"l3-5","check":true,"trusted":false,"option":false,)"
            R"("policy":"keep"}]}]})");
}

TEST(TableAsJson, IsNullForWhatWasNeverSet) {
  RelayTable table;
  table.Apply(Call(wire::ADD_L3_INTERFACE, "r1", "l3-5"));
  table.Apply(Call(wire::ADD_IF_OPTION, "r1", "l3-6"));
  EXPECT_EQ(relayctl::TableAsJson(Join(WriteTable(table))),
            R"({"instances":[{"name":"r1","servers":[],"check":null,"trusted":null,"option":null,)"
            R"("policy":null,"vrf":null,"interfaces":[{"name":"l3-5","vlan":null,"address":null}],)"
            R"("if_options":[{"name":"l3-6","check":null,"trusted":null,"option":null,)"
            R"("policy":null}]}]})");
}

TEST(TableAsJson, OfAnEmptyTableHasNoInstances) {
  EXPECT_EQ(relayctl::TableAsJson(Join(dhcp_manager::WriteTable(RelayTable()))),
            R"({"instances":[]})");
}

TEST(TableAsText, IsForPeople) {
  RelayTable table;
  EXPECT_EQ(relayctl::TableAsText(Join(WriteTable(table))), "no relay instances\n");
  table.Apply(AddressCall(wire::ADD_SERVER, "r1", 0x0A000001));
  table.Apply(AddressCall(wire::ADD_SERVER, "r1", 0x0A000002));
  table.Apply(FlagCall(wire::SET_CHECK, "r1", true));
  table.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  table.Apply(PolicyCall(wire::SET_IF_OPTION_POLICY, "r1", 2, "l3-5"));
  EXPECT_EQ(relayctl::TableAsText(Join(WriteTable(table))),
            "relay r1\n"
            "  servers: 10.0.0.1, 10.0.0.2\n"
            "  VRF: -\n"
            "  settings: check on, trusted -, option -, policy -\n"
            "  interface l3-5: VLAN 5, address -\n"
            "  override l3-5: check -, trusted -, option -, policy replace\n");
}

TEST(TableInReplies, OfThousandsOfInstancesIsWhole) {
  RelayTable table;
  for (int i = 0; i < 5000; ++i) {
    const std::string name = "relay-" + std::to_string(i);
    table.Apply(AddressCall(wire::ADD_SERVER, name, 0x0A000001));
    table.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, name, "l3-" + std::to_string(i), 7));
  }
  const auto replies = WriteTable(table);
  EXPECT_GT(replies.size(), 1U);
  const auto joined = Join(replies);
  ASSERT_EQ(joined.size(), 5000U);
  for (const auto& instance : joined) {
    EXPECT_EQ(instance.servers_size(), 1);
    EXPECT_EQ(instance.interfaces_size(), 1);
  }
}

TEST(TableInReplies, OfOneInstanceWithThousandsOfPartsIsWhole) {
  RelayTable table;
  table.Apply(FlagCall(wire::SET_CHECK, "r1", true));
  for (std::uint32_t i = 0; i < 5000; ++i) {
    const std::string name = "l3-" + std::string(200, 'x') + std::to_string(i);
    table.Apply(AddressCall(wire::ADD_SERVER, "r1", 0x0A000000 + i));
    table.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", name, i));
    table.Apply(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", true, name));
  }
  table.Apply(FlagCall(wire::SET_CHECK, "r2", true));
  const auto joined = Join(WriteTable(table));
  ASSERT_EQ(joined.size(), 2U);
  EXPECT_EQ(joined[0].servers_size(), 5000);
  EXPECT_EQ(joined[0].interfaces_size(), 5000);
  EXPECT_EQ(joined[0].if_options_size(), 5000);
  EXPECT_TRUE(joined[0].options().check());
}

TEST(StatusRendering, TellsConnectionAndSync) {
  control::Status status;
  EXPECT_EQ(relayctl::StatusAsText(status),
            "daemon: not connected, not in sync; 0 calls and 0 dumps so far\n");
  status.set_connected(true);
  status.set_in_sync(true);
  status.set_calls(26);
  status.set_dumps(1);
  EXPECT_EQ(relayctl::StatusAsText(status),
            "daemon: connected, in sync; 26 calls and 1 dumps so far\n");
  EXPECT_EQ(relayctl::StatusAsJson(status),
            R"({"connected":true,"in_sync":true,"calls":26,"dumps":1})");
}

}  // namespace
