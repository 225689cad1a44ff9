// The rendering of relay records, byte for byte: it is part of the log's format.

#include <stdexcept>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

TriState BadSwitch() { return static_cast<TriState>(2); }

template <typename Record>
std::string WhyItThrows(const Record& record) {
  try {
    record.ToString();
  } catch (const std::out_of_range& error) {
    return error.what();
  }
  return "it does not throw";
}

TEST(RecordTextTest, InstanceWithEverythingOfOneKind) {
  DhcpRelayIntf intf("r1");
  intf.AddServerAddr(Ip("10.0.0.1"));
  intf.trusted = TriState::kYes;
  intf.policy = DhcpRelayPolicy::kDrop;
  DhcpRelayL3Intf& l3_intf = intf.GetOrAddL3Intf("l3-5");
  l3_intf.SetAddedVlanId(5);
  l3_intf.SetIpv4Addr(Ip("192.168.1.1"));
  intf.GetOrAddIfOption("l3-5").check = TriState::kNo;
  EXPECT_EQ(intf.ToString(),
            "DHCP Relay name: r1\n"
            "\tAdded Server Addresses: \n"
            "\t\t10.0.0.1\n"
            "\tShould delete: false\n"
            "\tTrusted: yes\n"
            "\tCheck: undefined\n"
            "\tOption: undefined\n"
            "\tPolicy: drop\n"
            "\tDHCP L3 Interface list:\n"
            "\t\tDHCP L3 Interface name: l3-5\n"
            "\t\tShould delete: false\n"
            "\t\tAdded VLAN ID: 5\n"
            "\t\tDeleted VLAN ID: 0\n"
            "\t\tIPv4 Address: 192.168.1.1\n"
            "\tDHCP IfOption list:\n"
            "\tDHCP Relay IfOption name: l3-5\n"
            "\tShould delete: false\n"
            "\tTrusted: undefined\n"
            "\tCheck: no\n"
            "\tOption: undefined\n"
            "\tPolicy: undefined\n");
}

TEST(RecordTextTest, FreshInstanceHasSixLines) {
  EXPECT_EQ(DhcpRelayIntf("x").ToString(),
            "DHCP Relay name: x\n"
            "\tShould delete: false\n"
            "\tTrusted: undefined\n"
            "\tCheck: undefined\n"
            "\tOption: undefined\n"
            "\tPolicy: undefined\n");
}

TEST(RecordTextTest, InstanceWithEveryFieldSet) {
  EXPECT_EQ(FullRecord("r1").ToString(),
            "DHCP Relay name: r1\n"
            "\tAdded Server Addresses: \n"
            "\t\t10.0.0.1\n"
            "\t\t10.0.0.2\n"
            "\tDeleted Server Addresses: \n"
            "\t\t10.0.0.3\n"
            "\t\t10.0.0.4\n"
            "\tShould delete: true\n"
            "\tTrusted: yes\n"
            "\tCheck: yes\n"
            "\tOption: no\n"
            "\tPolicy: replace\n"
            "\tDHCP L3 Interface list:\n"
            "\t\tDHCP L3 Interface name: l3-5\n"
            "\t\tShould delete: true\n"
            "\t\tAdded VLAN ID: 5\n"
            "\t\tDeleted VLAN ID: 6\n"
            "\t\tIPv4 Address: 192.168.1.1\n"
            "\t\tDHCP L3 Interface name: l3-6\n"
            "\t\tShould delete: false\n"
            "\t\tAdded VLAN ID: 0\n"
            "\t\tDeleted VLAN ID: 0\n"
            "\t\tIPv4 Address: 0.0.0.0\n"
            "\tDHCP IfOption list:\n"
            "\tDHCP Relay IfOption name: l3-5\n"
            "\tShould delete: true\n"
            "\tTrusted: no\n"
            "\tCheck: no\n"
            "\tOption: yes\n"
            "\tPolicy: drop\n"
            "\tDHCP Relay IfOption name: l3-6\n"
            "\tShould delete: false\n"
            "\tTrusted: undefined\n"
            "\tCheck: undefined\n"
            "\tOption: undefined\n"
            "\tPolicy: undefined\n");
}

TEST(RecordTextTest, VrfIsNotRendered) {
  DhcpRelayIntf intf("x");
  intf.SetVrfId(7);
  intf.SetVrfDeleted();
  EXPECT_EQ(intf.ToString(), DhcpRelayIntf("x").ToString());
}

TEST(RecordTextTest, L3InterfaceOfZerosHasFiveLines) {
  EXPECT_EQ(DhcpRelayL3Intf("l3-5").ToString(),
            "\t\tDHCP L3 Interface name: l3-5\n"
            "\t\tShould delete: false\n"
            "\t\tAdded VLAN ID: 0\n"
            "\t\tDeleted VLAN ID: 0\n"
            "\t\tIPv4 Address: 0.0.0.0\n");
}

TEST(RecordTextTest, VlanIdsHaveNoSign) {
  DhcpRelayL3Intf l3_intf("l3-5");
  l3_intf.SetAddedVlanId(-1);
  l3_intf.SetDeletedVlanId(32768);
  EXPECT_EQ(l3_intf.ToString(),
            "\t\tDHCP L3 Interface name: l3-5\n"
            "\t\tShould delete: false\n"
            "\t\tAdded VLAN ID: 65535\n"
            "\t\tDeleted VLAN ID: 32768\n"
            "\t\tIPv4 Address: 0.0.0.0\n");
}

TEST(RecordTextTest, FreshIfOptionHasSixLines) {
  EXPECT_EQ(DhcpRelayIfOption("l3-5").ToString(),
            "\tDHCP Relay IfOption name: l3-5\n"
            "\tShould delete: false\n"
            "\tTrusted: undefined\n"
            "\tCheck: undefined\n"
            "\tOption: undefined\n"
            "\tPolicy: undefined\n");
}

TEST(RecordTextTest, ServersPrintInOrderWithDuplicates) {
  DhcpRelayIntf intf("x");
  for (const char* address : {"10.0.0.2", "10.0.0.1", "10.0.0.2"}) intf.AddServerAddr(Ip(address));
  EXPECT_TRUE(
      intf.ToString().starts_with("DHCP Relay name: x\n"
                                  "\tAdded Server Addresses: \n"
                                  "\t\t10.0.0.2\n"
                                  "\t\t10.0.0.1\n"
                                  "\t\t10.0.0.2\n"
                                  "\tShould delete: false\n"))
      << intf.ToString();
}

TEST(RecordTextTest, PoliciesHaveTheirWords) {
  const std::pair<int, std::string> words[] = {{0, "drop"},      {1, "keep"},
                                               {2, "replace"},   {3, "undefined"},
                                               {7, "undefined"}, {-1, "undefined"}};
  for (const auto& [policy, word] : words) {
    DhcpRelayIntf intf("x");
    intf.policy = static_cast<DhcpRelayPolicy>(policy);
    EXPECT_TRUE(intf.ToString().ends_with("\tOption: undefined\n\tPolicy: " + word + "\n"))
        << intf.ToString();
    DhcpRelayIfOption if_option("x");
    if_option.policy = static_cast<DhcpRelayPolicy>(policy);
    EXPECT_TRUE(if_option.ToString().ends_with("\tOption: undefined\n\tPolicy: " + word + "\n"))
        << if_option.ToString();
  }
}

TEST(RecordTextTest, SwitchOutsideOfItsValuesThrows) {
  for (TriState DhcpRelayIntf::* field :
       {&DhcpRelayIntf::trusted, &DhcpRelayIntf::check, &DhcpRelayIntf::option}) {
    DhcpRelayIntf intf("x");
    intf.*field = BadSwitch();
    EXPECT_EQ(WhyItThrows(intf), "map::at");
  }
  for (TriState DhcpRelayIfOption::* field :
       {&DhcpRelayIfOption::trusted, &DhcpRelayIfOption::check, &DhcpRelayIfOption::option}) {
    DhcpRelayIfOption if_option("x");
    if_option.*field = BadSwitch();
    EXPECT_EQ(WhyItThrows(if_option), "map::at");
  }
}

TEST(RecordTextTest, BadSwitchOfAnOverrideThrowsOutOfItsInstance) {
  DhcpRelayIntf intf("x");
  intf.GetOrAddIfOption("l3-5").option = static_cast<TriState>(-2);
  EXPECT_EQ(WhyItThrows(intf), "map::at");
}

TEST(RecordTextTest, RenderingChangesNothing) {
  const DhcpRelayIntf intf = FullRecord("r1");
  EXPECT_EQ(intf.ToString(), intf.ToString());
  EXPECT_EQ(intf, FullRecord("r1"));
}

}  // namespace
}  // namespace dhcp_relay_app
