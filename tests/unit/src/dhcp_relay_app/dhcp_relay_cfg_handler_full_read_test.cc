// The full read: what it asks the database, in which order, and what the records hold after it.

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class FullReadTest : public HandlerTest {
 protected:
  // Reads with a clean journal; the level decides about the trace lines.
  void Read() {
    journal_.Clear();
    log_.lines.clear();
    Peer::DumpConfig(*handler_);
  }

  // One instance with two servers, two interfaces (one without anything below the interface tree)
  // and an override.
  void FillInstance();
  static DhcpRelayIntf FilledRecord();
};

void FullReadTest::FillInstance() {
  const std::string r1 = "/config/dhcp/relay{r1}";
  AddInstance("r1");
  confd_.SetObject(r1, InstanceData(fakes::Flag(true), fakes::Flag(false), fakes::Flag(true),
                                    fakes::Enumeration(2)));
  confd_.SetLeaf(r1 + "/vrf", fakes::Buf("red"));
  confd_.SetLeaf(
      "/metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{red}/vrf-idx",
      fakes::Uint32(7));
  confd_.SetList(r1 + "/server/ipv4", {fakes::Address("10.0.0.2"), fakes::Address("10.0.0.1")});
  confd_.SetObject(r1 + "/server/ipv4[0]", {fakes::Address("10.0.0.2")});
  confd_.SetObject(r1 + "/server/ipv4[1]", {fakes::Address("10.0.0.1")});
  confd_.SetList(r1 + "/interface", {fakes::Buf("l3-9"), fakes::Buf("l3-5")});
  confd_.SetLeaf("/config/interface/l3{9}/lower-layer-if/vlan", fakes::Int32(70000));
  confd_.SetLeaf("/config/interface/l3{9}/ipv4/address/ip", fakes::Prefix("192.168.1.1", 24));
  confd_.SetList(r1 + "/if-option", {fakes::Buf("l3-9")});
  confd_.SetObject(r1 + "/if-option{l3-9}",
                   IfOptionData(fakes::Flag(false), fakes::Flag(true), fakes::Flag(false),
                                fakes::Enumeration(0)));
}

DhcpRelayIntf FullReadTest::FilledRecord() {
  DhcpRelayIntf intf("r1");
  intf.option = TriState::kYes;
  intf.check = TriState::kNo;
  intf.trusted = TriState::kYes;
  intf.policy = DhcpRelayPolicy::kReplace;
  intf.SetVrfId(7);
  intf.AddServerAddr(Ip("10.0.0.2"));
  intf.AddServerAddr(Ip("10.0.0.1"));
  DhcpRelayL3Intf& l3_intf = intf.GetOrAddL3Intf("l3-9");
  l3_intf.SetAddedVlanId(4464);
  l3_intf.SetIpv4Addr(Ip("192.168.1.1"));
  intf.GetOrAddL3Intf("l3-5");
  DhcpRelayIfOption& if_option = intf.GetOrAddIfOption("l3-9");
  if_option.option = TriState::kNo;
  if_option.check = TriState::kYes;
  if_option.trusted = TriState::kNo;
  if_option.policy = DhcpRelayPolicy::kDrop;
  return intf;
}

TEST_F(FullReadTest, FillsTheRecordOfAnInstance) {
  FillInstance();
  Read();
  EXPECT_THAT(Batch(), ElementsAre(FilledRecord()));
}

TEST_F(FullReadTest, AsksTheDatabaseInOrder) {
  FillInstance();
  Read();
  EXPECT_THAT(
      journal_.StartingWithAny({"cdb_", "session"}),
      ElementsAre(
          "session open", "cdb_num_instances /config/dhcp/relay",
          "cdb_get_objects(1,0,1) /config/dhcp/relay", "cdb_get_object(8) /config/dhcp/relay{r1}",
          "cdb_get_str(64) /config/dhcp/relay{r1}/vrf",
          "cdb_get /metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{red}/"
          "vrf-idx",
          "cdb_num_instances /config/dhcp/relay{r1}/server/ipv4",
          "cdb_get_object(1) /config/dhcp/relay{r1}/server/ipv4[0]",
          "cdb_get_object(1) /config/dhcp/relay{r1}/server/ipv4[1]",
          "cdb_num_instances /config/dhcp/relay{r1}/interface",
          "cdb_get_objects(1,0,2) /config/dhcp/relay{r1}/interface",
          "cdb_exists /config/interface/l3{9}/lower-layer-if/vlan",
          "cdb_get_int32 /config/interface/l3{9}/lower-layer-if/vlan",
          "cdb_exists /config/interface/l3{9}/ipv4/address/ip",
          "cdb_get_ipv4_and_plen /config/interface/l3{9}/ipv4/address/ip",
          "cdb_exists /config/interface/l3{5}/lower-layer-if/vlan",
          "cdb_exists /config/interface/l3{5}/ipv4/address/ip",
          "cdb_num_instances /config/dhcp/relay{r1}/if-option",
          "cdb_get_objects(1,0,1) /config/dhcp/relay{r1}/if-option",
          "cdb_get_object(6) /config/dhcp/relay{r1}/if-option{l3-9}", "session close"));
}

TEST_F(FullReadTest, TracesEachStep) {
  FillInstance();
  log_.Enable(kTraceLevel);
  Read();
  EXPECT_THAT(
      log_.Texts(),
      ElementsAre(
          "10 DumpConfig: Fetching DHCP Relay config", "10 DumpConfig: DHCP Relay: 0",
          "10 DumpInstance: \tOption: 1", "10 DumpInstance: \tCheck: 0",
          "10 DumpInstance: \tTrusted: 1", "10 DumpInstance: \tPolicy: replace",
          "10 DumpInstance: \tVRF: red", "10 DumpInstance: Server IP Address: 10.0.0.2",
          "10 DumpInstance: Server IP Address: 10.0.0.1",
          "10 DumpInstance: DHCP Relay Interface L3: 0", "10 DumpInterface: \tVLAN ID: 70000",
          "10 DumpInterface: \tIPv4 Addr: 192.168.1.1",
          "10 DumpInstance: DHCP Relay Interface L3: 1", "10 DumpInstance: DHCP Relay IfOption: 0",
          "10 DumpIfOption: \tOption: 0", "10 DumpIfOption: \tCheck: 1",
          "10 DumpIfOption: \tTrusted: 0", "10 DumpIfOption: \tPolicy: drop"));
  EXPECT_THAT(log_.lines, Each(Field(&fakes::LogLine::source_path, kHandlerPath)));
  EXPECT_THAT(log_.lines, Each(Field(&fakes::LogLine::category, fakes::Vxmw::Category())));
}

TEST_F(FullReadTest, TraceLinesStandBetweenTheReads) {
  FillInstance();
  log_.Enable(kTraceLevel);
  Read();
  const auto& entries = journal_.entries();
  EXPECT_EQ(entries[0], "zlog 10 DumpConfig: Fetching DHCP Relay config");
  EXPECT_EQ(entries[1], "session open");
  const auto after = [&](const std::string& entry) {
    const auto found = std::find(entries.begin(), entries.end(), entry);
    return found == entries.end() ? "" : *(found + 1);
  };
  EXPECT_EQ(after("cdb_get_objects(1,0,1) /config/dhcp/relay"),
            "zlog 10 DumpConfig: DHCP Relay: 0");
  EXPECT_EQ(after("cdb_get_object(8) /config/dhcp/relay{r1}"), "zlog 10 DumpInstance: \tOption: 1");
  EXPECT_EQ(after("cdb_get_object(1) /config/dhcp/relay{r1}/server/ipv4[0]"),
            "zlog 10 DumpInstance: Server IP Address: 10.0.0.2");
  EXPECT_EQ(after("cdb_get_int32 /config/interface/l3{9}/lower-layer-if/vlan"),
            "zlog 10 DumpInterface: \tVLAN ID: 70000");
}

TEST_F(FullReadTest, WithTraceOffOnlyTheLevelIsTested) {
  FillInstance();
  log_.asked_levels.clear();
  Read();
  EXPECT_THAT(log_.lines, IsEmpty());
  EXPECT_THAT(log_.asked_levels, SizeIs(18));
  EXPECT_THAT(log_.asked_levels, Each(kTraceLevel));
  EXPECT_THAT(log_.asked_categories, ElementsAre(fakes::Vxmw::Category()));
}

TEST_F(FullReadTest, ReleasesKeysAfterUseAndTheInstanceLast) {
  FillInstance();
  Read();
  EXPECT_THAT(journal_.StartingWithAny({"confd_free", "cdb_get_object(6)", "session close"}),
              ElementsAre("confd_free_value l3-9", "confd_free_value l3-5",
                          "cdb_get_object(6) /config/dhcp/relay{r1}/if-option{l3-9}",
                          "confd_free_value key", "confd_free_value", "confd_free_value l3-9",
                          "confd_free_value key", "confd_free_value vrf", "confd_free_value",
                          "confd_free_value r1", "session close"));
}

TEST_F(FullReadTest, ServerIsReleasedBeforeTheNextIsRead) {
  const std::string servers = "/config/dhcp/relay{r1}/server/ipv4";
  AddInstance("r1");
  confd_.SetList(servers, {fakes::Address("10.0.0.1"), fakes::Address("10.0.0.2")});
  confd_.SetObject(servers + "[0]", {fakes::Address("10.0.0.1")});
  confd_.SetObject(servers + "[1]", {fakes::Address("10.0.0.2")});
  Read();
  EXPECT_EQ(confd_.unreleased_values(), 0);
  EXPECT_THAT(Batch().front().added_server_addrs(), ElementsAre(Ip("10.0.0.1"), Ip("10.0.0.2")));
}

TEST_F(FullReadTest, UsesOneSessionOnTheRunningDatabase) {
  FillInstance();
  AddInstance("r2");
  Read();
  ASSERT_THAT(adapter_.sessions, SizeIs(1));
  EXPECT_EQ(adapter_.sessions[0].interface, &interface_);
  EXPECT_EQ(adapter_.sessions[0].database, CDB_RUNNING);
  EXPECT_TRUE(adapter_.sessions[0].start);
  EXPECT_THAT(confd_.calls(), Each(Field(&fakes::CdbCall::sock, confd_.calls().front().sock)));
}

TEST_F(FullReadTest, KeysAreRenderedInto256Bytes) {
  FillInstance();
  Read();
  EXPECT_THAT(confd_.pp_value_sizes(), ElementsAre(256, 256, 256, 256));
}

TEST_F(FullReadTest, WritesIntoTheRecordThatIsThere) {
  FillInstance();
  Batch().emplace_back("old");
  Batch().emplace_back("r1").AddServerAddr(Ip("10.9.9.9"));
  Read();
  EXPECT_THAT(BatchNames(), ElementsAre("old", "r1"));
  EXPECT_THAT(Batch().back().added_server_addrs(),
              ElementsAre(Ip("10.9.9.9"), Ip("10.0.0.2"), Ip("10.0.0.1")));
}

TEST_F(FullReadTest, InterfaceAndOverrideOfOneNameAreKeptApart) {
  FillInstance();
  Read();
  EXPECT_EQ(Batch().front().l3_intfs().front().name(), "l3-9");
  EXPECT_EQ(Batch().front().if_options().front().name(), "l3-9");
}

}  // namespace
}  // namespace dhcp_relay_app
