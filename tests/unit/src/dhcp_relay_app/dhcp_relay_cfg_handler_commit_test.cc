// What the change callbacks of a commit record, through the subscription points the adapter calls.

#include <csignal>
#include <stdexcept>
#include <string>

#include "tests/unit/src/dhcp_relay_app/change_path.h"
#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::KilledBySignal;
using ::testing::SizeIs;

constexpr int kRelayPoint = 0;
constexpr int kAddressPoint = 1;
constexpr int kVlanPoint = 2;

constexpr char kRedIndexPath[] =
    "/metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{red}/vrf-idx";

class CommitTest : public HandlerTest {
 protected:
  confd_iter_ret Call(int point, confd_hkeypath_t path, confd_iter_op op, confd_value_t* old_value,
                      confd_value_t* new_value) {
    return handler_->GetSubscriptionPoints()[static_cast<std::size_t>(point)].callback(
        &path, op, old_value, new_value);
  }
  confd_iter_ret Create(const confd_hkeypath_t& path) {
    return Call(kRelayPoint, path, MOP_CREATED, nullptr, nullptr);
  }
  confd_iter_ret Delete(const confd_hkeypath_t& path) {
    return Call(kRelayPoint, path, MOP_DELETED, nullptr, nullptr);
  }
  confd_iter_ret Set(const confd_hkeypath_t& path, confd_value_t value) {
    return Call(kRelayPoint, path, MOP_VALUE_SET, nullptr, &value);
  }
  confd_iter_ret SetNull(const confd_hkeypath_t& path) {
    return Call(kRelayPoint, path, MOP_VALUE_SET, nullptr, nullptr);
  }
  confd_iter_ret SetVlan(const std::string& key, std::int32_t vlan) {
    auto value = Int32Value(vlan);
    return Call(kVlanPoint, VlanPathOf(key), MOP_VALUE_SET, nullptr, &value);
  }

  const DhcpRelayIntf& Only() {
    EXPECT_THAT(Batch(), SizeIs(1));
    return Batch().front();
  }

  // Instance A lists l3-5.
  void ListInterface() {
    AddInstance("A");
    confd_.SetExists("/config/dhcp/relay{A}/interface{l3-5}", 1);
  }

  void SetL3(int vlan, const char* address) {
    confd_.SetLeaf("/config/interface/l3{5}/lower-layer-if/vlan", fakes::Int32(vlan));
    confd_.SetLeaf("/config/interface/l3{5}/ipv4/address/ip", fakes::Prefix(address, 24));
  }

  // Log lines that are not trace.
  std::vector<std::string> Errors() const {
    std::vector<std::string> errors;
    for (const fakes::LogLine& line : log_.lines) {
      if (line.level == kErrorLevel) errors.push_back(line.function + ": " + line.text);
    }
    return errors;
  }

  std::vector<std::string> Traces(const std::string& function) const {
    std::vector<std::string> traces;
    for (const fakes::LogLine& line : log_.lines) {
      if (line.level == kTraceLevel && line.function == function) traces.push_back(line.text);
    }
    return traces;
  }

  static std::string Assertion(const std::string& expression) {
    return "Assertion `" + expression + "' failed.";
  }
};

// --- dispatch

TEST_F(CommitTest, EveryChangeLetsTheIterationDescend) {
  EXPECT_EQ(Create(RelayPath("A")), ITER_RECURSE);
  EXPECT_EQ(Delete(RelayPath("A")), ITER_RECURSE);
  EXPECT_EQ(Set(OptionPath("A", vx_schema::kTagCheck), BoolValue(true)), ITER_RECURSE);
  for (const confd_iter_op op : {MOP_MODIFIED, MOP_MOVED_AFTER, MOP_ATTR_SET}) {
    EXPECT_EQ(Call(kRelayPoint, RelayPath("A"), op, nullptr, nullptr), ITER_RECURSE);
  }
}

TEST_F(CommitTest, ModifiedMovedAndAttributesRecordNothing) {
  for (const confd_iter_op op : {MOP_MODIFIED, MOP_MOVED_AFTER, MOP_ATTR_SET}) {
    Call(kRelayPoint, RelayPath("A"), op, nullptr, nullptr);
  }
  EXPECT_THAT(Batch(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CommitTest, PathWithoutATagContinuesAndRecordsNothing) {
  EXPECT_EQ(Create(KeyPathOf({BufValue("A"), BufValue("B")})), ITER_CONTINUE);
  EXPECT_EQ(Create(KeyPathOf({})), ITER_CONTINUE);
  EXPECT_THAT(Batch(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CommitTest, UnknownOperationIsAnErrorLineWithTraceOff) {
  EXPECT_EQ(Call(kRelayPoint, RelayPath("A"), static_cast<confd_iter_op>(7), nullptr, nullptr),
            ITER_RECURSE);
  EXPECT_THAT(Errors(), ElementsAre("HandleCfg: Unexpected operation 7"));
}

TEST_F(CommitTest, UnknownOperationThrowsWithTraceOn) {
  log_.Enable(kTraceLevel);
  EXPECT_THROW(Call(kRelayPoint, RelayPath("A"), static_cast<confd_iter_op>(0), nullptr, nullptr),
               std::out_of_range);
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CommitTest, TraceLineNamesOperationPathAndValuePointers) {
  log_.Enable(kTraceLevel);
  auto value = Int32Value(5);
  Call(kVlanPoint, VlanPathOf("5"), MOP_DELETED, &value, nullptr);
  char expected[256];
  std::snprintf(expected, sizeof(expected), "%s: %s, oldv = %p, newv = %p\n", "MOP_DELETED",
                "/00000001/00000001/00000001{5}/00000001/00000001", static_cast<void*>(&value),
                static_cast<void*>(nullptr));
  EXPECT_THAT(Traces("HandleL3VlanCfg"), ElementsAre(expected));
}

TEST_F(CommitTest, EveryOperationHasItsNameInTheTrace) {
  log_.Enable(kTraceLevel);
  const std::string names[] = {"MOP_CREATED",   "MOP_DELETED",     "MOP_MODIFIED",
                               "MOP_VALUE_SET", "MOP_MOVED_AFTER", "MOP_ATTR_SET"};
  for (int op = 1; op <= 6; ++op) {
    Call(kAddressPoint, AddressPathOf("5"), static_cast<confd_iter_op>(op), nullptr, nullptr);
    EXPECT_THAT(Traces("HandleL3Ipv4Cfg").back(), ::testing::StartsWith(names[op - 1] + ": "));
  }
}

TEST_F(CommitTest, PathIsPrintedInto256BytesWithTraceOffToo) {
  Delete(RelayPath("A"));
  EXPECT_THAT(confd_.pp_kpath_sizes(), ElementsAre(256));
  EXPECT_THAT(Traces("HandleCfg"), IsEmpty());
}

TEST_F(CommitTest, CommitThatCreatesAnInstanceWithItsLeavesYieldsOneRecord) {
  confd_.SetLeaf(kRedIndexPath, fakes::Uint32(7));
  handler_->StartCommit();
  Create(RelayPath("A"));
  Set(RelayPath("A", {TagValue(kOtherTag)}), BufValue("A"));
  Set(VrfPath("A"), BufValue("red"));
  Create(ServerPath("A", "192.0.2.1"));
  Set(ServerKeyPath("A", "192.0.2.1"), AddressValue("192.0.2.1"));
  Set(OptionPath("A", vx_schema::kTagCheck), BoolValue(true));
  Set(OptionPath("A", vx_schema::kTagPolicy), EnumValue(1));

  DhcpRelayIntf expected("A");
  expected.SetVrfId(7);
  expected.AddServerAddr(Ip("192.0.2.1"));
  expected.check = TriState::kYes;
  expected.policy = DhcpRelayPolicy::kKeep;
  EXPECT_EQ(Only(), expected);
  handler_->ApplyCommitConfig();
  EXPECT_THAT(receiver_->records, ElementsAre(Received{expected, true}, Received{expected, false}));
}

TEST_F(CommitTest, SecondCommitDropsTheRecordsOfTheFirst) {
  Delete(RelayPath("A"));
  handler_->StartCommit();
  EXPECT_THAT(Batch(), IsEmpty());
}

// --- layer-3 interfaces

TEST_F(CommitTest, VlanChangeOfAListedInterfaceRecordsBothIds) {
  ListInterface();
  auto old_value = Int32Value(10);
  auto new_value = Int32Value(20);
  EXPECT_EQ(Call(kVlanPoint, VlanPathOf("5"), MOP_VALUE_SET, &old_value, &new_value), ITER_RECURSE);
  DhcpRelayIntf expected("A");
  expected.GetOrAddL3Intf("l3-5").SetAddedVlanId(20);
  expected.GetOrAddL3Intf("l3-5").SetDeletedVlanId(10);
  EXPECT_EQ(Only(), expected);
}

TEST_F(CommitTest, FirstVlanOfAnInterfaceHasNoDeletedId) {
  ListInterface();
  SetVlan("5", 70000);
  EXPECT_EQ(Only().l3_intfs().front().added_vlan_id(), 4464);
  EXPECT_EQ(Only().l3_intfs().front().deleted_vlan_id(), 0);
}

TEST_F(CommitTest, VlanChangeOfAnUnlistedInterfaceSendsNothing) {
  AddInstance("A");
  EXPECT_EQ(SetVlan("5", 20), ITER_RECURSE);
  EXPECT_THAT(Batch(), IsEmpty());
  handler_->ApplyCommitConfig();
  EXPECT_THAT(receiver_->records, IsEmpty());
}

TEST_F(CommitTest, DeletedVlanOrAddressRecordsNothing) {
  ListInterface();
  auto old_value = Int32Value(10);
  EXPECT_EQ(Call(kVlanPoint, VlanPathOf("5"), MOP_DELETED, &old_value, nullptr), ITER_RECURSE);
  EXPECT_EQ(Call(kAddressPoint, AddressPathOf("5"), MOP_DELETED, nullptr, nullptr), ITER_RECURSE);
  EXPECT_THAT(Batch(), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 0);
}

TEST_F(CommitTest, AddressChangeOfAListedInterfaceRecordsTheAddressAlone) {
  ListInterface();
  auto old_value = PrefixValue("10.0.0.1", 24);
  auto new_value = PrefixValue("10.0.0.2", 8);
  Call(kAddressPoint, AddressPathOf("5"), MOP_VALUE_SET, &old_value, &new_value);
  DhcpRelayIntf expected("A");
  expected.GetOrAddL3Intf("l3-5").SetIpv4Addr(Ip("10.0.0.2"));
  EXPECT_EQ(Only(), expected);
}

TEST_F(CommitTest, VlanValuesOfAnotherTypeEndTheProcess) {
  ListInterface();
  auto wrong = BoolValue(true);
  auto right = Int32Value(5);
  EXPECT_EXIT(Call(kVlanPoint, VlanPathOf("5"), MOP_VALUE_SET, nullptr, &wrong),
              KilledBySignal(SIGABRT), HasSubstr(Assertion("(new_value)->type == C_INT32")));
  EXPECT_EXIT(Call(kVlanPoint, VlanPathOf("5"), MOP_VALUE_SET, &wrong, &right),
              KilledBySignal(SIGABRT), HasSubstr(Assertion("(old_value)->type == C_INT32")));
  EXPECT_EXIT(Call(kAddressPoint, AddressPathOf("5"), MOP_VALUE_SET, nullptr, &right),
              KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(new_value)->type == C_IPV4_AND_PLEN")));
}

TEST_F(CommitTest, InterfaceKeysOfAnotherTypeEndTheProcess) {
  auto path = VlanPathOf("5");
  path.v[2][0] = Int32Value(5);
  auto value = Int32Value(5);
  EXPECT_EXIT(Call(kVlanPoint, path, MOP_VALUE_SET, nullptr, &value), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[2][0])->type == C_BUF")));
  path = AddressPathOf("5");
  path.v[3][0] = Int32Value(5);
  EXPECT_EXIT(Call(kAddressPoint, path, MOP_VALUE_SET, nullptr, &value), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[3][0])->type == C_BUF")));
}

// --- creation

TEST_F(CommitTest, CreationOfAnythingButAnInterfaceIsAnErrorLine) {
  Create(RelayPath("A"));
  Create(ServerPath("A", "192.0.2.1"));
  Create(EntryPath("A", vx_schema::kTagIfOption, "l3-5"));
  EXPECT_THAT(Errors(), ElementsAre("HandleCreateParameter: Unexpected create path",
                                    "HandleCreateParameter: Unexpected create path",
                                    "HandleCreateParameter: Unexpected create path"));
  EXPECT_THAT(Batch(), IsEmpty());
}

TEST_F(CommitTest, CreatedInterfaceGetsItsVlanAndAddress) {
  SetL3(100, "10.0.0.1");
  log_.Enable(kTraceLevel);
  Create(EntryPath("A", vx_schema::kTagInterface, "l3-5"));
  DhcpRelayIntf expected("A");
  expected.GetOrAddL3Intf("l3-5").SetAddedVlanId(100);
  expected.GetOrAddL3Intf("l3-5").SetIpv4Addr(Ip("10.0.0.1"));
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleCreateParameter"),
              ElementsAre("Creating DHCP Relay L3 interface l3-5, VLAN ID 100 and IPv4 Address "
                          "10.0.0.1 on instance A"));
}

TEST_F(CommitTest, CreatedInterfaceThatIsMissingRaisesTwoFaults) {
  Create(EntryPath("A", vx_schema::kTagInterface, "l3-5"));
  ASSERT_THAT(middleware_.faults, SizeIs(2));
  for (const fakes::Fault& fault : middleware_.faults) {
    EXPECT_EQ(fault.severity, 0);
    EXPECT_EQ(fault.function, "HandleCreateParameter");
    EXPECT_EQ(fault.source_path, kHandlerPath);
    EXPECT_FALSE(fault.text.empty());
  }
  DhcpRelayIntf expected("A");
  expected.GetOrAddL3Intf("l3-5");
  EXPECT_EQ(Only(), expected);
}

TEST_F(CommitTest, ShortInterfaceNameThrowsBeforeAnythingIsRecorded) {
  EXPECT_THROW(Create(EntryPath("A", vx_schema::kTagInterface, "l3")), std::out_of_range);
  EXPECT_THROW(Delete(EntryPath("A", vx_schema::kTagInterface, "l3")), std::out_of_range);
  EXPECT_THAT(Batch(), IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 0);
}

TEST_F(CommitTest, CreationKeysAreCheckedInstanceFirst) {
  auto path = EntryPath("A", vx_schema::kTagInterface, "l3-5");
  path.v[0][0] = Int32Value(1);
  EXPECT_EXIT(Create(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[0][0])->type == C_BUF")));
  path.v[2][0] = Int32Value(1);
  EXPECT_EXIT(Create(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[2][0])->type == C_BUF")));
}

// --- deletion

TEST_F(CommitTest, DeletedInstanceIsMarked) {
  log_.Enable(kTraceLevel);
  Delete(RelayPath("A"));
  DhcpRelayIntf expected("A");
  expected.SetShouldDelete();
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleDeleteParameter"), ElementsAre("Deleting DHCP Relay A"));
}

TEST_F(CommitTest, DeletedVrfIsMarkedWithoutALineWhenTheLeafIsGone) {
  log_.Enable(kTraceLevel);
  Delete(VrfPath("A"));
  DhcpRelayIntf expected("A");
  expected.SetVrfDeleted();
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleDeleteParameter"), IsEmpty());
  EXPECT_THAT(middleware_.faults, IsEmpty());
  EXPECT_EQ(confd_.opened_sessions(), 1);
}

TEST_F(CommitTest, DeletedVrfThatCanStillBeReadIsNamed) {
  confd_.SetLeaf("/config/dhcp/relay{A}/vrf", fakes::Buf("red"));
  log_.Enable(kTraceLevel);
  Delete(VrfPath("A"));
  EXPECT_THAT(Traces("HandleDeleteParameter"), ElementsAre("Deleting DHCP Relay A VRF: red"));
}

TEST_F(CommitTest, DeletedServerIsListedOncePerChange) {
  log_.Enable(kTraceLevel);
  Delete(ServerPath("A", "192.0.2.1"));
  Delete(ServerPath("A", "192.0.2.1"));
  EXPECT_THAT(Only().deleted_server_addrs(), ElementsAre(Ip("192.0.2.1"), Ip("192.0.2.1")));
  EXPECT_THAT(Traces("HandleDeleteParameter"),
              Contains("Deleting server address 192.0.2.1 on DHCP Relay A"));
}

TEST_F(CommitTest, DeletedInterfaceIsMarkedWithTheVlanItStillHas) {
  SetL3(100, "10.0.0.1");
  log_.Enable(kTraceLevel);
  Delete(EntryPath("A", vx_schema::kTagInterface, "l3-5"));
  DhcpRelayIntf expected("A");
  expected.GetOrAddL3Intf("l3-5").SetDeletedVlanId(100);
  expected.GetOrAddL3Intf("l3-5").SetShouldDelete();
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleDeleteParameter"),
              ElementsAre("Deleting DHCP Relay L3 interface l3-5, instance A"));
}

TEST_F(CommitTest, DeletedInterfaceWithoutAVlanRaisesAFault) {
  Delete(EntryPath("A", vx_schema::kTagInterface, "l3-5"));
  ASSERT_THAT(middleware_.faults, SizeIs(1));
  EXPECT_EQ(middleware_.faults[0].function, "HandleDeleteParameter");
  EXPECT_TRUE(Only().l3_intfs().front().should_delete());
  EXPECT_EQ(Only().l3_intfs().front().deleted_vlan_id(), 0);
}

TEST_F(CommitTest, DeletedOverrideIsMarked) {
  log_.Enable(kTraceLevel);
  Delete(EntryPath("A", vx_schema::kTagIfOption, "l3-5"));
  DhcpRelayIntf expected("A");
  expected.GetOrAddIfOption("l3-5").SetShouldDelete();
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleDeleteParameter"),
              ElementsAre("Deleting DHCP Relay L3 if-option l3-5, instance A"));
}

TEST_F(CommitTest, DeletedOptionLeafIsAnErrorLine) {
  for (const auto leaf : {vx_schema::kTagCheck, vx_schema::kTagOption, vx_schema::kTagTrusted,
                          vx_schema::kTagPolicy}) {
    Delete(OptionPath("A", leaf));
    EXPECT_EQ(Errors().back(), "HandleDeleteParameter: Unexpected delete path");
  }
  EXPECT_THAT(Errors(), SizeIs(4));
  EXPECT_THAT(Batch(), IsEmpty());
}

TEST_F(CommitTest, DeletionKeysOfAnotherTypeEndTheProcess) {
  auto path = RelayPath("A");
  path.v[0][0] = Int32Value(1);
  EXPECT_EXIT(Delete(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[0][0])->type == C_BUF")));
  path = VrfPath("A");
  path.v[1][0] = Int32Value(1);
  EXPECT_EXIT(Delete(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[1][0])->type == C_BUF")));
  path = ServerPath("A", "192.0.2.1");
  path.v[0][0] = Int32Value(1);
  EXPECT_EXIT(Delete(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[0][0])->type == C_IPV4")));
  path.v[3][0] = Int32Value(1);
  EXPECT_EXIT(Delete(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[3][0])->type == C_BUF")));
  for (const auto list : {vx_schema::kTagInterface, vx_schema::kTagIfOption}) {
    path = EntryPath("A", list, "l3-5");
    path.v[0][0] = Int32Value(1);
    EXPECT_EXIT(Delete(path), KilledBySignal(SIGABRT),
                HasSubstr(Assertion("(&kp->v[0][0])->type == C_BUF")));
    path.v[2][0] = Int32Value(1);
    EXPECT_EXIT(Delete(path), KilledBySignal(SIGABRT),
                HasSubstr(Assertion("(&kp->v[2][0])->type == C_BUF")));
  }
}

// --- sets

TEST_F(CommitTest, SameServerSetTwiceIsStoredTwice) {
  log_.Enable(kTraceLevel);
  Set(ServerKeyPath("A", "192.0.2.1"), AddressValue("192.0.2.1"));
  Set(ServerKeyPath("A", "192.0.2.1"), AddressValue("192.0.2.1"));
  EXPECT_THAT(Only().added_server_addrs(), ElementsAre(Ip("192.0.2.1"), Ip("192.0.2.1")));
  EXPECT_THAT(Traces("HandleSetParameter"),
              Contains("Configuring DHCP Relay A server address: 192.0.2.1"));
}

TEST_F(CommitTest, VrfIsStoredAsItsIndex) {
  confd_.SetLeaf(kRedIndexPath, fakes::Uint32(7));
  log_.Enable(kTraceLevel);
  Set(VrfPath("A"), BufValue("red"));
  DhcpRelayIntf expected("A");
  expected.SetVrfId(7);
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleSetParameter"), ElementsAre("Configuring DHCP Relay A VRF: red"));
}

TEST_F(CommitTest, VrfWithoutAnIndexRaisesAFaultAndEndsTheProcess) {
  confd_.SetLeaf(kRedIndexPath, fakes::Uint32(7));
  Set(VrfPath("A"), BufValue("red"));  // must not leave a value behind that passes the check
  EXPECT_EXIT(
      {
        journal_.SetEcho(true);
        Set(VrfPath("A"), BufValue("blue"));
      },
      KilledBySignal(SIGABRT),
      AllOf(HasSubstr("HandleSetParameter"),
            HasSubstr(Assertion("(&vl_vrf_id)->type == C_UINT32"))));
}

TEST_F(CommitTest, NullServerOrVrfIsSilent) {
  SetNull(ServerKeyPath("A", "192.0.2.1"));
  SetNull(VrfPath("A"));
  EXPECT_THAT(Batch(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CommitTest, NullOptionValueIsAnErrorLine) {
  SetNull(OptionPath("A", vx_schema::kTagCheck));
  SetNull(IfOptionPath("A", "l3-5", vx_schema::kTagPolicy));
  EXPECT_THAT(
      Errors(),
      ElementsAre(
          "HandleRelaySetParameter: Failed to get Instance L3 configuration value",
          "HandleIfOptionSetParameter: Failed to get Instance IfOption configuration value"));
  EXPECT_THAT(Batch(), IsEmpty());
}

TEST_F(CommitTest, InstanceOptionsAreRecordedAndTraced) {
  log_.Enable(kTraceLevel);
  Set(OptionPath("A", vx_schema::kTagCheck), BoolValue(true));
  Set(OptionPath("A", vx_schema::kTagOption), BoolValue(false));
  Set(OptionPath("A", vx_schema::kTagTrusted), BoolValue(true));
  Set(OptionPath("A", vx_schema::kTagPolicy), EnumValue(2));
  DhcpRelayIntf expected("A");
  expected.check = TriState::kYes;
  expected.option = TriState::kNo;
  expected.trusted = TriState::kYes;
  expected.policy = DhcpRelayPolicy::kReplace;
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleRelaySetParameter"),
              ElementsAre("Check enabled on DHCP Relay instance A",
                          "Option disabled on DHCP Relay instance A",
                          "Trusted enabled on DHCP Relay instance A",
                          "Configuring policy replace on DHCP Relay instance A"));
}

TEST_F(CommitTest, OverrideOptionsAreRecordedAndTraced) {
  log_.Enable(kTraceLevel);
  Set(IfOptionPath("A", "l3-5", vx_schema::kTagCheck), BoolValue(false));
  Set(IfOptionPath("A", "l3-5", vx_schema::kTagOption), BoolValue(true));
  Set(IfOptionPath("A", "l3-5", vx_schema::kTagTrusted), BoolValue(false));
  Set(IfOptionPath("A", "l3-5", vx_schema::kTagPolicy), EnumValue(0));
  DhcpRelayIntf expected("A");
  DhcpRelayIfOption& if_option = expected.GetOrAddIfOption("l3-5");
  if_option.check = TriState::kNo;
  if_option.option = TriState::kYes;
  if_option.trusted = TriState::kNo;
  if_option.policy = DhcpRelayPolicy::kDrop;
  EXPECT_EQ(Only(), expected);
  EXPECT_THAT(Traces("HandleIfOptionSetParameter"),
              ElementsAre("Check disabled on DHCP Relay instance A IfOption l3-5",
                          "Option enabled on DHCP Relay instance A IfOption l3-5",
                          "Trusted disabled on DHCP Relay instance A IfOption l3-5",
                          "Configuring policy drop on DHCP Relay instance A IfOption l3-5"));
}

TEST_F(CommitTest, OverrideOfTrustedLeavesTheInstancesUndefined) {
  Set(IfOptionPath("A", "l3-5", vx_schema::kTagTrusted), BoolValue(false));
  DhcpRelayIntf expected("A");
  expected.GetOrAddIfOption("l3-5").trusted = TriState::kNo;
  EXPECT_EQ(Only(), expected);
}

TEST_F(CommitTest, LaterSetOfALeafOverwritesTheEarlier) {
  Set(OptionPath("A", vx_schema::kTagCheck), BoolValue(true));
  Set(OptionPath("A", vx_schema::kTagCheck), BoolValue(false));
  EXPECT_EQ(Only().check, TriState::kNo);
}

TEST_F(CommitTest, OptionLeafUnderAForeignTagRecordsAndLogsNothing) {
  for (const auto leaf : {vx_schema::kTagCheck, vx_schema::kTagPolicy}) {
    auto path = OptionPath("A", leaf);
    path.v[3][0] = TagValue(kOtherTag);
    EXPECT_EQ(Set(path, BoolValue(true)), ITER_RECURSE);
  }
  EXPECT_THAT(Batch(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CommitTest, AnyOtherLeafIsAnErrorLine) {
  Set(RelayPath("A", {TagValue(kOtherTag)}), BufValue("A"));
  EXPECT_THAT(Errors(), ElementsAre("HandleSetParameter: Unexpected set path"));
  EXPECT_THAT(Batch(), IsEmpty());
}

TEST_F(CommitTest, UnknownPolicyThrowsAfterItsRecordWasAdded) {
  EXPECT_THROW(Set(OptionPath("A", vx_schema::kTagPolicy), EnumValue(3)), std::out_of_range);
  EXPECT_EQ(Only(), DhcpRelayIntf("A"));
  EXPECT_THROW(Set(IfOptionPath("A", "l3-5", vx_schema::kTagPolicy), EnumValue(-1)),
               std::out_of_range);
  DhcpRelayIntf expected("A");
  expected.GetOrAddIfOption("l3-5");
  EXPECT_EQ(Only(), expected);
}

TEST_F(CommitTest, UnknownPolicyLeavesTheOneSetBefore) {
  Set(OptionPath("A", vx_schema::kTagPolicy), EnumValue(0));
  EXPECT_THROW(Set(OptionPath("A", vx_schema::kTagPolicy), EnumValue(3)), std::out_of_range);
  EXPECT_EQ(Only().policy, DhcpRelayPolicy::kDrop);
}

TEST_F(CommitTest, SetKeysOfAnotherTypeEndTheProcess) {
  auto path = ServerKeyPath("A", "192.0.2.1");
  path.v[4][0] = Int32Value(1);
  EXPECT_EXIT(SetNull(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[4][0])->type == C_BUF")));
  path = VrfPath("A");
  path.v[1][0] = Int32Value(1);
  EXPECT_EXIT(Set(path, Int32Value(1)), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[1][0])->type == C_BUF")));
  path = OptionPath("A", vx_schema::kTagCheck);
  path.v[3][0] = Int32Value(1);
  EXPECT_EXIT(SetNull(path), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[3][0])->type == C_XMLTAG")));
  path = OptionPath("A", vx_schema::kTagCheck);
  path.v[2][0] = Int32Value(1);
  EXPECT_EXIT(Set(path, Int32Value(1)), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[2][0])->type == C_BUF")));
  path = IfOptionPath("A", "l3-5", vx_schema::kTagCheck);
  path.v[2][0] = Int32Value(1);
  EXPECT_EXIT(Set(path, Int32Value(1)), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[2][0])->type == C_BUF")));
  path.v[4][0] = Int32Value(1);
  EXPECT_EXIT(Set(path, Int32Value(1)), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&kp->v[4][0])->type == C_BUF")));
}

TEST_F(CommitTest, SetValuesOfAnotherTypeEndTheProcess) {
  const auto wrong = Int32Value(1);
  EXPECT_EXIT(Set(ServerKeyPath("A", "192.0.2.1"), wrong), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(new_value)->type == C_IPV4")));
  EXPECT_EXIT(Set(VrfPath("A"), wrong), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(new_value)->type == C_BUF")));
  for (const auto leaf : {vx_schema::kTagCheck, vx_schema::kTagOption, vx_schema::kTagTrusted}) {
    EXPECT_EXIT(Set(OptionPath("A", leaf), wrong), KilledBySignal(SIGABRT),
                HasSubstr(Assertion("(new_value)->type == C_BOOL")));
    EXPECT_EXIT(Set(IfOptionPath("A", "l3-5", leaf), wrong), KilledBySignal(SIGABRT),
                HasSubstr(Assertion("(new_value)->type == C_BOOL")));
  }
  EXPECT_EXIT(Set(OptionPath("A", vx_schema::kTagPolicy), wrong), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(new_value)->type == C_ENUM_VALUE")));
  EXPECT_EXIT(Set(IfOptionPath("A", "l3-5", vx_schema::kTagPolicy), wrong), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(new_value)->type == C_ENUM_VALUE")));
}

}  // namespace
}  // namespace dhcp_relay_app
