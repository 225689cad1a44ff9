// Equality of the relay records, field by field.

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

// Two records that differ by one change, compared both ways.
template <typename Record>
struct Difference {
  std::string name;
  std::function<void(Record&)> change;
};

template <typename Record>
void PrintTo(const Difference<Record>& difference, std::ostream* out) {
  *out << difference.name;
}

template <typename Record>
std::string NameOf(const ::testing::TestParamInfo<Difference<Record>>& info) {
  return info.param.name;
}

template <typename Record>
void ExpectUnequalAfter(const std::function<void(Record&)>& change, const Record& record) {
  Record changed = record;
  EXPECT_TRUE(changed == record);
  change(changed);
  EXPECT_FALSE(changed == record);
  EXPECT_FALSE(record == changed);
  Record changed_too = record;
  change(changed_too);
  EXPECT_TRUE(changed == changed_too);
}

using IfOptionDifference = Difference<DhcpRelayIfOption>;
class IfOptionEqualityTest : public ::testing::TestWithParam<IfOptionDifference> {};

TEST_P(IfOptionEqualityTest, TellsTheDifference) {
  ExpectUnequalAfter(GetParam().change, DhcpRelayIfOption("l3-5"));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, IfOptionEqualityTest,
    ::testing::Values(IfOptionDifference{"Name", [](auto& r) { r = DhcpRelayIfOption("l3-6"); }},
                      IfOptionDifference{"ShouldDelete", [](auto& r) { r.SetShouldDelete(); }},
                      IfOptionDifference{"Trusted", [](auto& r) { r.trusted = TriState::kNo; }},
                      IfOptionDifference{"Check", [](auto& r) { r.check = TriState::kNo; }},
                      IfOptionDifference{"Option", [](auto& r) { r.option = TriState::kNo; }},
                      IfOptionDifference{"Policy",
                                         [](auto& r) { r.policy = DhcpRelayPolicy::kDrop; }}),
    NameOf<DhcpRelayIfOption>);

using L3IntfDifference = Difference<DhcpRelayL3Intf>;
class L3IntfEqualityTest : public ::testing::TestWithParam<L3IntfDifference> {};

TEST_P(L3IntfEqualityTest, TellsTheDifference) {
  ExpectUnequalAfter(GetParam().change, DhcpRelayL3Intf("l3-5"));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, L3IntfEqualityTest,
    ::testing::Values(L3IntfDifference{"Name", [](auto& r) { r = DhcpRelayL3Intf("l3-6"); }},
                      L3IntfDifference{"ShouldDelete", [](auto& r) { r.SetShouldDelete(); }},
                      L3IntfDifference{"AddedVlanId", [](auto& r) { r.SetAddedVlanId(5); }},
                      L3IntfDifference{"DeletedVlanId", [](auto& r) { r.SetDeletedVlanId(5); }},
                      L3IntfDifference{"Ipv4Addr", [](auto& r) { r.SetIpv4Addr(Ip("10.0.0.1")); }}),
    NameOf<DhcpRelayL3Intf>);

using IntfDifference = Difference<DhcpRelayIntf>;
class IntfEqualityTest : public ::testing::TestWithParam<IntfDifference> {};

TEST_P(IntfEqualityTest, TellsTheDifference) {
  ExpectUnequalAfter(GetParam().change, DhcpRelayIntf("r1"));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, IntfEqualityTest,
    ::testing::Values(
        IntfDifference{"Name", [](auto& r) { r = DhcpRelayIntf("r2"); }},
        IntfDifference{"ShouldDelete", [](auto& r) { r.SetShouldDelete(); }},
        IntfDifference{"VrfId", [](auto& r) { r.SetVrfId(7); }},
        IntfDifference{"VrfDeleted", [](auto& r) { r.SetVrfDeleted(); }},
        IntfDifference{"AddedServers", [](auto& r) { r.AddServerAddr(Ip("10.0.0.1")); }},
        IntfDifference{"DeletedServers", [](auto& r) { r.AddDeletedServerAddr(Ip("10.0.0.1")); }},
        IntfDifference{"L3Interfaces", [](auto& r) { r.GetOrAddL3Intf("l3-5"); }},
        IntfDifference{"IfOptions", [](auto& r) { r.GetOrAddIfOption("l3-5"); }},
        IntfDifference{"Trusted", [](auto& r) { r.trusted = TriState::kNo; }},
        IntfDifference{"Check", [](auto& r) { r.check = TriState::kNo; }},
        IntfDifference{"Option", [](auto& r) { r.option = TriState::kNo; }},
        IntfDifference{"Policy", [](auto& r) { r.policy = DhcpRelayPolicy::kDrop; }}),
    NameOf<DhcpRelayIntf>);

// The same on a record that holds an entry of every list: the change is inside an entry.
class EntryEqualityTest : public ::testing::TestWithParam<IntfDifference> {};

TEST_P(EntryEqualityTest, TellsTheDifference) {
  ExpectUnequalAfter(GetParam().change, FullRecord("r1"));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, EntryEqualityTest,
    ::testing::Values(
        IntfDifference{"OneServerMore", [](auto& r) { r.AddServerAddr(Ip("10.0.0.1")); }},
        IntfDifference{"L3Interface", [](auto& r) { r.GetOrAddL3Intf("l3-6").SetAddedVlanId(6); }},
        IntfDifference{"IfOption",
                       [](auto& r) { r.GetOrAddIfOption("l3-6").check = TriState::kYes; }}),
    NameOf<DhcpRelayIntf>);

TEST(IntfOrderTest, ServersInAnotherOrderAreNotEqual) {
  DhcpRelayIntf forward("r1");
  DhcpRelayIntf backward("r1");
  for (const char* address : {"10.0.0.1", "10.0.0.2"}) forward.AddServerAddr(Ip(address));
  for (const char* address : {"10.0.0.2", "10.0.0.1"}) backward.AddServerAddr(Ip(address));
  EXPECT_FALSE(forward == backward);
}

TEST(IntfOrderTest, DeletedServersInAnotherOrderAreNotEqual) {
  DhcpRelayIntf forward("r1");
  DhcpRelayIntf backward("r1");
  for (const char* address : {"10.0.0.1", "10.0.0.2"}) forward.AddDeletedServerAddr(Ip(address));
  for (const char* address : {"10.0.0.2", "10.0.0.1"}) backward.AddDeletedServerAddr(Ip(address));
  EXPECT_FALSE(forward == backward);
}

TEST(IntfOrderTest, L3InterfacesInAnotherOrderAreNotEqual) {
  DhcpRelayIntf forward("r1");
  DhcpRelayIntf backward("r1");
  for (const char* name : {"l3-5", "l3-6"}) forward.GetOrAddL3Intf(name);
  for (const char* name : {"l3-6", "l3-5"}) backward.GetOrAddL3Intf(name);
  EXPECT_FALSE(forward == backward);
}

TEST(IntfOrderTest, IfOptionsInAnotherOrderAreNotEqual) {
  DhcpRelayIntf forward("r1");
  DhcpRelayIntf backward("r1");
  for (const char* name : {"l3-5", "l3-6"}) forward.GetOrAddIfOption(name);
  for (const char* name : {"l3-6", "l3-5"}) backward.GetOrAddIfOption(name);
  EXPECT_FALSE(forward == backward);
}

}  // namespace
}  // namespace dhcp_relay_app
