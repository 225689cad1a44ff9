// The full read on particular contents of the database: empty lists, absent leaves, every flag and
// policy, and odd names.

#include <string>
#include <tuple>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

class ReadValuesTest : public HandlerTest {
 protected:
  void Read() {
    journal_.Clear();
    log_.lines.clear();
    Peer::DumpConfig(*handler_);
  }
};

TEST_F(ReadValuesTest, EmptyListIsReadWithNoObjects) {
  log_.Enable(kTraceLevel);
  Read();
  EXPECT_THAT(journal_.entries(),
              ElementsAre("zlog 10 DumpConfig: Fetching DHCP Relay config", "session open",
                          "cdb_num_instances /config/dhcp/relay",
                          "cdb_get_objects(1,0,0) /config/dhcp/relay", "session close"));
  EXPECT_THAT(Batch(), IsEmpty());
}

TEST_F(ReadValuesTest, NoInstancesSendNothing) {
  interface_.SetConnected(true);
  DhcpDumpRequest request;
  handler_->HandleCommand(&request);
  EXPECT_THAT(receiver_->commands, IsEmpty());
}

TEST_F(ReadValuesTest, BareInstanceIsSentWithItsOptionsAlone) {
  AddInstance("r1");
  interface_.SetConnected(true);
  DhcpDumpRequest request;
  handler_->HandleCommand(&request);
  DhcpRelayIntf expected("r1");
  expected.option = expected.check = expected.trusted = TriState::kNo;
  expected.policy = DhcpRelayPolicy::kKeep;
  EXPECT_THAT(receiver_->records, ElementsAre(Received{expected, false}));
}

TEST_F(ReadValuesTest, EmptyListsOfAnInstanceAreReadWithNoObjects) {
  AddInstance("r1");
  Read();
  EXPECT_THAT(journal_.StartingWith("cdb_get_objects"),
              ElementsAre("cdb_get_objects(1,0,1) /config/dhcp/relay",
                          "cdb_get_objects(1,0,0) /config/dhcp/relay{r1}/interface",
                          "cdb_get_objects(1,0,0) /config/dhcp/relay{r1}/if-option"));
}

TEST_F(ReadValuesTest, AbsentVrfIsSilent) {
  AddInstance("r1");
  log_.Enable(kTraceLevel);
  Read();
  EXPECT_EQ(Batch().front().vrf_id(), 0U);
  EXPECT_THAT(middleware_.faults, IsEmpty());
  EXPECT_THAT(log_.Texts(), Each(Not(HasSubstr("VRF"))));
  EXPECT_THAT(journal_.StartingWith("cdb_get /"), IsEmpty());
}

TEST_F(ReadValuesTest, VrfNameOf63CharactersIsRead) {
  const std::string name(63, 'v');
  AddInstance("r1");
  confd_.SetLeaf("/config/dhcp/relay{r1}/vrf", fakes::Buf(name));
  confd_.SetLeaf(
      "/metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{" + name + "}/vrf-idx",
      fakes::Uint32(0xFFFFFFFFU));
  Read();
  EXPECT_EQ(Batch().front().vrf_id(), 0xFFFFFFFFU);
}

TEST_F(ReadValuesTest, FlagsOfInstanceCrossIntoTheirFields) {
  const auto read_with = [&](bool option, bool check, bool trusted) {
    confd_.SetObject("/config/dhcp/relay{r1}",
                     InstanceData(fakes::Flag(option), fakes::Flag(check), fakes::Flag(trusted),
                                  fakes::Enumeration(0)));
    Batch().clear();
    Read();
    return Batch().front();
  };
  AddInstance("r1");
  DhcpRelayIntf expected("r1");
  expected.policy = DhcpRelayPolicy::kDrop;
  expected.option = TriState::kYes;
  expected.check = expected.trusted = TriState::kNo;
  EXPECT_EQ(read_with(true, false, false), expected);
  expected.check = TriState::kYes;
  expected.option = expected.trusted = TriState::kNo;
  EXPECT_EQ(read_with(false, true, false), expected);
  expected.trusted = TriState::kYes;
  expected.option = expected.check = TriState::kNo;
  EXPECT_EQ(read_with(false, false, true), expected);
}

TEST_F(ReadValuesTest, FlagsOfOverrideCrossIntoTheirFields) {
  const auto read_with = [&](bool option, bool check, bool trusted) {
    confd_.SetObject("/config/dhcp/relay{r1}/if-option{i}",
                     IfOptionData(fakes::Flag(option), fakes::Flag(check), fakes::Flag(trusted),
                                  fakes::Enumeration(0)));
    Batch().clear();
    Read();
    return Batch().front().if_options().front();
  };
  AddInstance("r1");
  confd_.SetList("/config/dhcp/relay{r1}/if-option", {fakes::Buf("i")});
  DhcpRelayIfOption expected("i");
  expected.policy = DhcpRelayPolicy::kDrop;
  expected.option = TriState::kYes;
  expected.check = expected.trusted = TriState::kNo;
  EXPECT_TRUE(read_with(true, false, false) == expected);
  expected.check = TriState::kYes;
  expected.option = expected.trusted = TriState::kNo;
  EXPECT_TRUE(read_with(false, true, false) == expected);
  expected.trusted = TriState::kYes;
  expected.option = expected.check = TriState::kNo;
  EXPECT_TRUE(read_with(false, false, true) == expected);
}

TEST_F(ReadValuesTest, PoliciesAreReadAndNamed) {
  const std::tuple<int, DhcpRelayPolicy, std::string> policies[] = {
      {0, DhcpRelayPolicy::kDrop, "drop"},
      {1, DhcpRelayPolicy::kKeep, "keep"},
      {2, DhcpRelayPolicy::kReplace, "replace"}};
  log_.Enable(kTraceLevel);
  AddInstance("r1");
  confd_.SetList("/config/dhcp/relay{r1}/if-option", {fakes::Buf("i")});
  for (const auto& [number, policy, name] : policies) {
    const auto flag = fakes::Flag(false);
    const auto value = fakes::Enumeration(number);
    confd_.SetObject("/config/dhcp/relay{r1}", InstanceData(flag, flag, flag, value));
    confd_.SetObject("/config/dhcp/relay{r1}/if-option{i}", IfOptionData(flag, flag, flag, value));
    Batch().clear();
    Read();
    EXPECT_EQ(Batch().front().policy, policy);
    EXPECT_EQ(Batch().front().if_options().front().policy, policy);
    EXPECT_THAT(journal_.StartingWithAny(
                    {"zlog 10 DumpInstance: \tPolicy", "zlog 10 DumpIfOption: \tPolicy"}),
                ElementsAre("zlog 10 DumpInstance: \tPolicy: " + name,
                            "zlog 10 DumpIfOption: \tPolicy: " + name));
  }
}

TEST_F(ReadValuesTest, InstancesKeepTheDatabasesOrder) {
  log_.Enable(kTraceLevel);
  SetInstances({"z", "a", "m"});
  Read();
  EXPECT_THAT(BatchNames(), ElementsAre("z", "a", "m"));
  EXPECT_THAT(journal_.StartingWith("zlog 10 DumpConfig: DHCP Relay:"),
              ElementsAre("zlog 10 DumpConfig: DHCP Relay: 0", "zlog 10 DumpConfig: DHCP Relay: 1",
                          "zlog 10 DumpConfig: DHCP Relay: 2"));
}

TEST_F(ReadValuesTest, InterfaceNameOfItsPrefixAloneMapsToAnEmptyKey) {
  AddInstance("r1");
  confd_.SetList("/config/dhcp/relay{r1}/interface", {fakes::Buf("l3-")});
  confd_.SetLeaf("/config/interface/l3{}/lower-layer-if/vlan", fakes::Int32(9));
  Read();
  DhcpRelayL3Intf expected("l3-");
  expected.SetAddedVlanId(9);
  EXPECT_THAT(Batch().front().l3_intfs(), ElementsAre(expected));
}

TEST_F(ReadValuesTest, FirstThreeCharactersAreDroppedWhateverTheyAre) {
  AddInstance("r1");
  confd_.SetList("/config/dhcp/relay{r1}/interface", {fakes::Buf("vlan5")});
  Read();
  EXPECT_THAT(journal_.StartingWith("cdb_exists"),
              ElementsAre("cdb_exists /config/interface/l3{n5}/lower-layer-if/vlan",
                          "cdb_exists /config/interface/l3{n5}/ipv4/address/ip"));
  EXPECT_EQ(Batch().front().l3_intfs().front().name(), "vlan5");
}

TEST_F(ReadValuesTest, InterfaceMissingInTheInterfaceTreeKeepsZeros) {
  AddInstance("r1");
  confd_.SetList("/config/dhcp/relay{r1}/interface", {fakes::Buf("l3-5")});
  log_.Enable(kTraceLevel);
  Read();
  EXPECT_THAT(Batch().front().l3_intfs(), ElementsAre(DhcpRelayL3Intf("l3-5")));
  EXPECT_THAT(journal_.StartingWith("zlog 10 DumpInterface"), IsEmpty());
  EXPECT_THAT(middleware_.faults, IsEmpty());
}

TEST_F(ReadValuesTest, KeysThatCannotBeRenderedAreSkipped) {
  AddInstance("r1");
  const std::string r1 = "/config/dhcp/relay{r1}";
  confd_.SetList("/config/dhcp/relay", {fakes::Unprintable(), fakes::Buf(""), fakes::Buf("r1")});
  confd_.SetList(r1 + "/interface", {fakes::Buf(""), fakes::Unprintable(), fakes::Buf("l3-5")});
  confd_.SetList(r1 + "/if-option", {fakes::Unprintable(), fakes::Buf(""), fakes::Buf("l3-6")});
  confd_.SetObject(r1 + "/if-option{l3-6}",
                   IfOptionData(fakes::Flag(false), fakes::Flag(false), fakes::Flag(false),
                                fakes::Enumeration(0)));
  log_.Enable(kTraceLevel);
  Read();
  ASSERT_THAT(BatchNames(), ElementsAre("r1"));
  ASSERT_THAT(Batch().front().l3_intfs(), ElementsAre(DhcpRelayL3Intf("l3-5")));
  ASSERT_THAT(Batch().front().if_options(), SizeIs(1));
  EXPECT_EQ(Batch().front().if_options().front().name(), "l3-6");
  EXPECT_THAT(middleware_.faults, IsEmpty());
  EXPECT_THAT(journal_.StartingWith("zlog 10 DumpInstance: DHCP Relay I"),
              ElementsAre("zlog 10 DumpInstance: DHCP Relay Interface L3: 0",
                          "zlog 10 DumpInstance: DHCP Relay Interface L3: 1",
                          "zlog 10 DumpInstance: DHCP Relay Interface L3: 2",
                          "zlog 10 DumpInstance: DHCP Relay IfOption: 0",
                          "zlog 10 DumpInstance: DHCP Relay IfOption: 1",
                          "zlog 10 DumpInstance: DHCP Relay IfOption: 2"));
}

// Object and key reads take the path as an argument, all other calls as their format.
TEST_F(ReadValuesTest, PathsAreFormatsWhereTheyAreNotArguments) {
  AddInstance("50%%");
  confd_.SetLeaf("/config/dhcp/relay{50%}/vrf", fakes::Buf("a%sb"));
  confd_.SetLeaf(
      "/metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{a%sb}/vrf-idx",
      fakes::Uint32(3));
  confd_.SetList("/config/dhcp/relay{50%}/server/ipv4", {fakes::Address("10.0.0.1")});
  confd_.SetObject("/config/dhcp/relay{50%}/server/ipv4[0]", {fakes::Address("10.0.0.1")});
  Read();
  EXPECT_EQ(Batch().front().vrf_id(), 3U);
  EXPECT_THAT(confd_.CallTexts(),
              ElementsAre("cdb_num_instances /config/dhcp/relay",
                          "cdb_get_objects(1,0,1) /config/dhcp/relay",
                          "cdb_get_object(8) /config/dhcp/relay{50%%}",
                          "cdb_get_str(64) /config/dhcp/relay{50%}/vrf",
                          "cdb_get /metacli-internal:internal/metacli-internal:vrf-config/"
                          "stringTOindex{a%sb}/vrf-idx",
                          "cdb_num_instances /config/dhcp/relay{50%}/server/ipv4",
                          "cdb_get_object(1) /config/dhcp/relay{50%}/server/ipv4[0]",
                          "cdb_num_instances /config/dhcp/relay{50%}/interface",
                          "cdb_get_objects(1,0,0) /config/dhcp/relay{50%%}/interface",
                          "cdb_num_instances /config/dhcp/relay{50%}/if-option",
                          "cdb_get_objects(1,0,0) /config/dhcp/relay{50%%}/if-option"));
}

}  // namespace
}  // namespace dhcp_relay_app
