// What a full read does with values that are missing, unreadable or of the wrong kind.

#include <csignal>
#include <stdexcept>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::KilledBySignal;
using ::testing::Not;
using ::testing::SizeIs;

constexpr char kRedIndexPath[] =
    "/metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{red}/vrf-idx";

class ReadFailureTest : public HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    AddInstance("r1");
    log_.Enable(kTraceLevel);
  }

  void Read() {
    journal_.Clear();
    Peer::DumpConfig(*handler_);
  }

  // In the child of a death test.
  void ReadWithEcho() {
    journal_.SetEcho(true);
    Peer::DumpConfig(*handler_);
  }

  static std::string Assertion(const std::string& expression) {
    return "Assertion `" + expression + "' failed.";
  }
};

// A value at one position that is not what it must be.
struct BadValue {
  std::string name;
  int position;
  fakes::Value value;
  std::string assertion;
};

void PrintTo(const BadValue& bad, std::ostream* out) { *out << bad.name; }
std::string NameOf(const ::testing::TestParamInfo<BadValue>& info) { return info.param.name; }

std::vector<BadValue> BadValues(const std::string& array, int first) {
  const std::string fields[] = {"Option", "Check", "Trusted", "Policy"};
  std::vector<BadValue> values;
  for (int i = 0; i < 4; ++i) {
    const std::string& field = fields[i];
    const int position = first + i;
    std::string text = "(&" + array;
    text.append("[").append(std::to_string(position)).append("])->type == ");
    text.append(i == 3 ? "C_ENUM_VALUE" : "C_BOOL");
    values.push_back({field + "Absent", position, fakes::Absent(), text});
    values.push_back({field + "IsANumber", position, fakes::Int32(1), text});
    values.push_back({field + "IsTheOtherType", position,
                      i == 3 ? fakes::Flag(true) : fakes::Enumeration(1), text});
  }
  return values;
}

class BadInstanceValueTest : public ReadFailureTest,
                             public ::testing::WithParamInterface<BadValue> {};

TEST_P(BadInstanceValueTest, EndsTheProcessAtItsAssertion) {
  auto values =
      InstanceData(fakes::Flag(true), fakes::Flag(true), fakes::Flag(true), fakes::Enumeration(0));
  values[static_cast<std::size_t>(GetParam().position)] = GetParam().value;
  confd_.SetObject("/config/dhcp/relay{r1}", values);
  EXPECT_EXIT(ReadWithEcho(), KilledBySignal(SIGABRT),
              AllOf(HasSubstr(Assertion(GetParam().assertion)),
                    HasSubstr("src/dhcp_relay_app/dhcp_relay_cfg_handler"),
                    HasSubstr("void dhcp_relay_app::DhcpRelayCfgHandler::DumpInstance(int, ")));
}

INSTANTIATE_TEST_SUITE_P(Values, BadInstanceValueTest,
                         ::testing::ValuesIn(BadValues("instance_data", 4)), NameOf);

class BadIfOptionValueTest : public ReadFailureTest,
                             public ::testing::WithParamInterface<BadValue> {};

TEST_P(BadIfOptionValueTest, EndsTheProcessAtItsAssertion) {
  auto values =
      IfOptionData(fakes::Flag(true), fakes::Flag(true), fakes::Flag(true), fakes::Enumeration(0));
  values[static_cast<std::size_t>(GetParam().position)] = GetParam().value;
  confd_.SetList("/config/dhcp/relay{r1}/if-option", {fakes::Buf("l3-5")});
  confd_.SetObject("/config/dhcp/relay{r1}/if-option{l3-5}", values);
  EXPECT_EXIT(ReadWithEcho(), KilledBySignal(SIGABRT),
              AllOf(HasSubstr(Assertion(GetParam().assertion)),
                    HasSubstr("void dhcp_relay_app::DhcpRelayCfgHandler::DumpIfOption(int, ")));
}

INSTANTIATE_TEST_SUITE_P(Values, BadIfOptionValueTest,
                         ::testing::ValuesIn(BadValues("if_option_data", 2)), NameOf);

TEST_F(ReadFailureTest, FailedInstanceReadDiesAtItsFirstFlag) {
  confd_.Fail("cdb_get_object", "/config/dhcp/relay{r1}", {});
  EXPECT_EXIT(
      ReadWithEcho(), KilledBySignal(SIGABRT),
      AllOf(HasSubstr(Assertion("(&instance_data[4])->type == C_BOOL")), Not(HasSubstr("fault"))));
}

TEST_F(ReadFailureTest, FailedOverrideReadDiesAtItsFirstFlag) {
  confd_.SetList("/config/dhcp/relay{r1}/if-option", {fakes::Buf("l3-5")});
  EXPECT_EXIT(
      ReadWithEcho(), KilledBySignal(SIGABRT),
      AllOf(HasSubstr(Assertion("(&if_option_data[2])->type == C_BOOL")), Not(HasSubstr("fault"))));
}

// The values of the instance before must not stand in for those that could not be read.
TEST_F(ReadFailureTest, FailedReadOfALaterInstanceDiesToo) {
  AddInstance("r2");
  confd_.Fail("cdb_get_object", "/config/dhcp/relay{r2}", {});
  EXPECT_EXIT(ReadWithEcho(), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&instance_data[4])->type == C_BOOL")));
}

TEST_F(ReadFailureTest, FlagsBeforeTheBadOneAreCheckedAndTraced) {
  confd_.SetObject("/config/dhcp/relay{r1}", InstanceData(fakes::Flag(true), fakes::Flag(false),
                                                          fakes::Absent(), fakes::Absent()));
  EXPECT_EXIT(ReadWithEcho(), KilledBySignal(SIGABRT),
              AllOf(ContainsRegex("DumpInstance: \tOption: 1\n"
                                  "zlog 10 DumpInstance: \tCheck: 0\n.*instance_data.6."),
                    Not(HasSubstr("Trusted"))));
}

TEST_F(ReadFailureTest, ServerOfAnotherTypeEndsTheProcess) {
  const std::string servers = "/config/dhcp/relay{r1}/server/ipv4";
  confd_.SetList(servers, {fakes::Address("10.0.0.1")});
  confd_.SetObject(servers + "[0]", {fakes::Prefix("10.0.0.1", 32)});
  EXPECT_EXIT(ReadWithEcho(), KilledBySignal(SIGABRT),
              HasSubstr(Assertion("(&server_addr_data[0])->type == C_IPV4")));
}

TEST_F(ReadFailureTest, ServerThatCannotBeReadEndsTheProcess) {
  const std::string servers = "/config/dhcp/relay{r1}/server/ipv4";
  confd_.SetList(servers, {fakes::Address("10.0.0.1"), fakes::Address("10.0.0.2")});
  confd_.SetObject(servers + "[0]", {fakes::Address("10.0.0.1")});
  EXPECT_EXIT(ReadWithEcho(), KilledBySignal(SIGABRT),
              AllOf(HasSubstr("Server IP Address: 10.0.0.1"),
                    HasSubstr(Assertion("(&server_addr_data[0])->type == C_IPV4"))));
}

TEST_F(ReadFailureTest, VrfWithoutIndexIsAFaultAndEndsTheProcess) {
  confd_.SetLeaf("/config/dhcp/relay{r1}/vrf", fakes::Buf("red"));
  confd_.Fail("cdb_get", kRedIndexPath, {CONFD_ERR, CONFD_ERR_NOEXISTS, "no index of red"});
  EXPECT_EXIT(
      ReadWithEcho(), KilledBySignal(SIGABRT),
      AllOf(ContainsRegex("fault 0 DumpInstance src/dhcp_relay_app/dhcp_relay_cfg_handler:[1-9]"
                          "[0-9]* 'no index of red'\n.*Assertion"),
            HasSubstr(Assertion("(&vl_vrf_id)->type == C_UINT32")), Not(HasSubstr("\tVRF:"))));
}

TEST_F(ReadFailureTest, IndexOfAnEarlierVrfDoesNotStandInForAMissingOne) {
  AddInstance("r2");
  confd_.SetLeaf("/config/dhcp/relay{r1}/vrf", fakes::Buf("red"));
  confd_.SetLeaf(kRedIndexPath, fakes::Uint32(7));
  confd_.SetLeaf("/config/dhcp/relay{r2}/vrf", fakes::Buf("blue"));
  EXPECT_EXIT(ReadWithEcho(), KilledBySignal(SIGABRT),
              AllOf(HasSubstr("\tVRF: red"), HasSubstr("fault 0 DumpInstance"),
                    HasSubstr(Assertion("(&vl_vrf_id)->type == C_UINT32"))));
}

TEST_F(ReadFailureTest, VrfIndexOfAnotherTypeEndsTheProcessWithoutAFault) {
  confd_.SetLeaf("/config/dhcp/relay{r1}/vrf", fakes::Buf("red"));
  confd_.SetLeaf(kRedIndexPath, fakes::Int32(7));
  EXPECT_EXIT(
      ReadWithEcho(), KilledBySignal(SIGABRT),
      AllOf(HasSubstr(Assertion("(&vl_vrf_id)->type == C_UINT32")), Not(HasSubstr("fault"))));
}

TEST_F(ReadFailureTest, VrfNameThatCannotBeReadIsNoVrf) {
  confd_.Fail("cdb_get_str", "/config/dhcp/relay{r1}/vrf", {CONFD_EOF, CONFD_ERR_BADTYPE, "odd"});
  Read();
  EXPECT_EQ(Batch().front().vrf_id(), 0U);
  EXPECT_THAT(middleware_.faults, IsEmpty());
  EXPECT_THAT(journal_.StartingWith("cdb_get /"), IsEmpty());
  EXPECT_THAT(journal_.entries(), Each(Not(HasSubstr("\tVRF:"))));
}

class L3ReadFailureTest : public ReadFailureTest {
 protected:
  void SetUp() override {
    ReadFailureTest::SetUp();
    confd_.SetList("/config/dhcp/relay{r1}/interface", {fakes::Buf("l3-5")});
    confd_.SetLeaf(kVlan, fakes::Int32(5));
    confd_.SetLeaf(kAddress, fakes::Prefix("192.168.1.1", 24));
  }

  static constexpr char kVlan[] = "/config/interface/l3{5}/lower-layer-if/vlan";
  static constexpr char kAddress[] = "/config/interface/l3{5}/ipv4/address/ip";
};

TEST_F(L3ReadFailureTest, UnreadableVlanIsAFaultAndZero) {
  confd_.Fail("cdb_get_int32", kVlan, {CONFD_ERR, CONFD_ERR_BADTYPE, "no number"});
  Read();
  ASSERT_THAT(middleware_.faults, SizeIs(1));
  const fakes::Fault& fault = middleware_.faults[0];
  EXPECT_EQ(fault.severity, 0);
  EXPECT_EQ(fault.function, "DumpInterface");
  EXPECT_EQ(fault.source_path, kHandlerPath);
  EXPECT_GT(fault.line, 0);
  EXPECT_EQ(fault.text, "no number");
  DhcpRelayL3Intf expected("l3-5");
  expected.SetIpv4Addr(Ip("192.168.1.1"));
  EXPECT_THAT(Batch().front().l3_intfs(), ElementsAre(expected));
  EXPECT_THAT(journal_.StartingWith("zlog 10 DumpInterface"),
              ElementsAre("zlog 10 DumpInterface: \tVLAN ID: 0",
                          "zlog 10 DumpInterface: \tIPv4 Addr: 192.168.1.1"));
}

TEST_F(L3ReadFailureTest, UnreadableAddressIsAFaultAndUnspecified) {
  confd_.Fail("cdb_get_ipv4_and_plen", kAddress, {CONFD_ERR, CONFD_ERR_BADTYPE, "no address"});
  Read();
  ASSERT_THAT(middleware_.faults, SizeIs(1));
  EXPECT_EQ(middleware_.faults[0].severity, 0);
  EXPECT_EQ(middleware_.faults[0].function, "DumpInterface");
  EXPECT_EQ(middleware_.faults[0].source_path, kHandlerPath);
  EXPECT_EQ(middleware_.faults[0].text, "no address");
  DhcpRelayL3Intf expected("l3-5");
  expected.SetAddedVlanId(5);
  EXPECT_THAT(Batch().front().l3_intfs(), ElementsAre(expected));
  EXPECT_THAT(journal_.StartingWith("zlog 10 DumpInterface"),
              ElementsAre("zlog 10 DumpInterface: \tVLAN ID: 5",
                          "zlog 10 DumpInterface: \tIPv4 Addr: 0.0.0.0"));
}

// Only 0 means absent, so that a failed test of existence leads to a failed read, which is
// reported.
TEST_F(L3ReadFailureTest, FailedExistenceTestIsFollowedByTheRead) {
  confd_.SetExists(kVlan, CONFD_ERR);
  confd_.SetExists(kAddress, CONFD_ERR);
  Read();
  DhcpRelayL3Intf expected("l3-5");
  expected.SetAddedVlanId(5);
  expected.SetIpv4Addr(Ip("192.168.1.1"));
  EXPECT_THAT(Batch().front().l3_intfs(), ElementsAre(expected));
}

TEST_F(L3ReadFailureTest, LeafThatDoesNotExistIsNotRead) {
  confd_.SetExists(kVlan, 0);
  confd_.SetExists(kAddress, 0);
  Read();
  EXPECT_THAT(Batch().front().l3_intfs(), ElementsAre(DhcpRelayL3Intf("l3-5")));
}

TEST_F(L3ReadFailureTest, TextOfAFaultIsTakenAsItIsAndCutToItsBuffer) {
  const std::string text = "%s%n" + std::string(500, 'x');
  confd_.Fail("cdb_get_int32", kVlan, {CONFD_ERR, CONFD_ERR_BADTYPE, text});
  Read();
  ASSERT_THAT(middleware_.faults, SizeIs(1));
  EXPECT_EQ(middleware_.faults[0].text, text.substr(0, 349));
}

// Exceptions that leave the read: what was read stays, the session is closed, the values are
// released (which the fixture checks), and a waiting request still waits.
class ReadThrowsTest : public ReadFailureTest {
 protected:
  void SetUp() override {
    ReadFailureTest::SetUp();
    AddInstance("r2");
    AddInstance("r3");
  }

  std::string WhatComesOutOfLoadInitialConfig() {
    Peer::SetDumpPending(*handler_, true);
    journal_.Clear();
    try {
      handler_->LoadInitialConfig();
    } catch (const std::out_of_range& error) {
      return error.what();
    }
    return "nothing";
  }

  void ExpectReadBrokenOffAtSecondInstance() {
    EXPECT_THAT(BatchNames(), ElementsAre("r1", "r2"));
    EXPECT_TRUE(Peer::DumpPending(*handler_));
    EXPECT_EQ(confd_.opened_sessions(), 1);
    EXPECT_EQ(confd_.open_sessions(), 0);
    EXPECT_EQ(confd_.owned_blocks(), 0);
    EXPECT_EQ(confd_.unreleased_values(), 0);
    EXPECT_THAT(receiver_->commands, IsEmpty());
    EXPECT_THAT(middleware_.faults, IsEmpty());
  }
};

TEST_F(ReadThrowsTest, UnknownPolicyOfAnInstanceThrows) {
  for (const int policy : {3, -1, 7}) {
    Batch().clear();
    confd_.SetObject("/config/dhcp/relay{r2}",
                     InstanceData(fakes::Flag(true), fakes::Flag(true), fakes::Flag(false),
                                  fakes::Enumeration(policy)));
    const int opened = confd_.opened_sessions();
    EXPECT_EQ(WhatComesOutOfLoadInitialConfig(), "map::at");
    EXPECT_THAT(BatchNames(), ElementsAre("r1", "r2"));
    EXPECT_EQ(Batch().back().option, TriState::kYes);
    EXPECT_EQ(Batch().back().trusted, TriState::kNo);
    EXPECT_EQ(Batch().back().policy, DhcpRelayPolicy::kUndefined);
    EXPECT_TRUE(Peer::DumpPending(*handler_));
    EXPECT_EQ(confd_.opened_sessions(), opened + 1);
    EXPECT_EQ(confd_.open_sessions(), 0);
    EXPECT_EQ(confd_.owned_blocks(), 0);
    EXPECT_THAT(receiver_->commands, IsEmpty());
  }
}

TEST_F(ReadThrowsTest, UnknownPolicyOfAnOverrideThrows) {
  for (const int policy : {3, -1, 7}) {
    Batch().clear();
    confd_.SetList("/config/dhcp/relay{r2}/if-option", {fakes::Buf("i"), fakes::Buf("j")});
    confd_.SetObject("/config/dhcp/relay{r2}/if-option{i}",
                     IfOptionData(fakes::Flag(true), fakes::Flag(true), fakes::Flag(false),
                                  fakes::Enumeration(policy)));
    EXPECT_EQ(WhatComesOutOfLoadInitialConfig(), "map::at");
    EXPECT_THAT(BatchNames(), ElementsAre("r1", "r2"));
    ASSERT_THAT(Batch().back().if_options(), SizeIs(1));
    EXPECT_EQ(Batch().back().if_options().front().check, TriState::kYes);
    EXPECT_EQ(Batch().back().if_options().front().policy, DhcpRelayPolicy::kUndefined);
    EXPECT_EQ(confd_.open_sessions(), 0);
    EXPECT_EQ(confd_.owned_blocks(), 0);
  }
}

TEST_F(ReadThrowsTest, InterfaceNameOfTwoCharactersThrows) {
  confd_.SetList("/config/dhcp/relay{r2}/interface", {fakes::Buf("l3"), fakes::Buf("l3-6")});
  EXPECT_THAT(WhatComesOutOfLoadInitialConfig(), HasSubstr("basic_string::substr"));
  ExpectReadBrokenOffAtSecondInstance();
  // The entry is there before its name is taken apart.
  EXPECT_THAT(Batch().back().l3_intfs(), ElementsAre(DhcpRelayL3Intf("l3")));
}

TEST_F(ReadThrowsTest, RequestThatThrewWhileConnectedStillWaits) {
  confd_.SetList("/config/dhcp/relay{r2}/interface", {fakes::Buf("l3")});
  interface_.SetConnected(true);
  DhcpDumpRequest request;
  EXPECT_THROW(controller_->Notify(receiver_.get(), &request), std::out_of_range);
  ExpectReadBrokenOffAtSecondInstance();
}

TEST_F(ReadThrowsTest, RequestNotPendingStaysSo) {
  confd_.SetList("/config/dhcp/relay{r2}/interface", {fakes::Buf("l3")});
  EXPECT_THROW(Peer::DumpConfig(*handler_), std::out_of_range);
  EXPECT_FALSE(Peer::DumpPending(*handler_));
}

}  // namespace
}  // namespace dhcp_relay_app
