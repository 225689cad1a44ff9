// Counting lists, and finding the instance that lists a layer-3 interface.

#include <cerrno>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class CountTest : public HandlerTest {
 protected:
  std::int64_t Count(const std::string& path) {
    const VxConfdCdbSession session(&interface_, CDB_RUNNING, true);
    return Peer::GetCdbNumInstance(*handler_, session.Socket(), path);
  }
};

TEST_F(CountTest, ReturnsTheNumberOfEntries) {
  confd_.SetList("/config/dhcp/relay", {fakes::Buf("r1"), fakes::Buf("r2")});
  EXPECT_EQ(Count("/config/dhcp/relay"), 2);
  EXPECT_EQ(Count("/config/dhcp/relay{r1}/interface"), 0);
  EXPECT_THAT(middleware_.faults, IsEmpty());
}

TEST_F(CountTest, FailureIsAFaultAndEndsTheProcess) {
  confd_.Fail("cdb_num_instances", "/config/dhcp/relay",
              {CONFD_ERR, CONFD_ERR_NOEXISTS, "what failed and where", ENOENT});
  EXPECT_EXIT(
      {
        journal_.SetEcho(true);
        Count("/config/dhcp/relay");
      },
      ExitedWithCode(1),
      ContainsRegex("confd_strerror 1\n"
                    "confd_lasterr\n"
                    "fault 0 GetCdbNumInstance src/dhcp_relay_app/dhcp_relay_cfg_handler:[1-9]"
                    "[0-9]* 'confd_lasterr: what failed and where, confd_errno: Item does not "
                    "exist, errno: No such file or directory'\n"));
}

TEST_F(CountTest, AnyNegativeCountIsAFailure) {
  confd_.Fail("cdb_num_instances", "/config/dhcp/relay",
              {CONFD_EOF, CONFD_ERR_NOSESSION, "gone", EPERM});
  EXPECT_EXIT(
      {
        journal_.SetEcho(true);
        Count("/config/dhcp/relay");
      },
      ExitedWithCode(1),
      HasSubstr("'confd_lasterr: gone, confd_errno: No session, errno: Operation not "
                "permitted'\n"));
}

TEST_F(CountTest, TextOfTheFaultIsCutToItsBuffer) {
  const std::string long_text(500, 'x');
  confd_.Fail("cdb_num_instances", "/config/dhcp/relay",
              {CONFD_ERR, CONFD_ERR_NOEXISTS, long_text, ENOENT});
  const std::string kept = ("confd_lasterr: " + long_text).substr(0, 349);
  EXPECT_EXIT(
      {
        journal_.SetEcho(true);
        Count("/config/dhcp/relay");
      },
      ExitedWithCode(1), HasSubstr(" '" + kept + "'\n"));
}

// The counts inside a full read, each failing in its turn.
class CountOfListTest : public CountTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(CountOfListTest, FailureEndsTheProcess) {
  AddInstance("r1");
  interface_.SetConnected(true);
  confd_.Fail("cdb_num_instances", GetParam(), {CONFD_ERR, CONFD_ERR_NOEXISTS, "broken", ENOENT});
  EXPECT_EXIT(
      {
        journal_.SetEcho(true);
        DhcpDumpRequest request;
        handler_->HandleCommand(&request);
      },
      ExitedWithCode(1),
      AllOf(HasSubstr("cdb_num_instances " + GetParam() + "\nconfd_strerror 1\nconfd_lasterr\n"),
            ContainsRegex("fault 0 GetCdbNumInstance src/dhcp_relay_app/dhcp_relay_cfg_handler:"
                          "[0-9]+ 'confd_lasterr: broken, confd_errno: Item does not exist, "
                          "errno: No such file or directory'\n"),
            Not(HasSubstr("receiver"))));
}

INSTANTIATE_TEST_SUITE_P(Instances, CountOfListTest, ::testing::Values("/config/dhcp/relay"));
INSTANTIATE_TEST_SUITE_P(Servers, CountOfListTest,
                         ::testing::Values("/config/dhcp/relay{r1}/server/ipv4"));
INSTANTIATE_TEST_SUITE_P(Interfaces, CountOfListTest,
                         ::testing::Values("/config/dhcp/relay{r1}/interface"));
INSTANTIATE_TEST_SUITE_P(IfOptions, CountOfListTest,
                         ::testing::Values("/config/dhcp/relay{r1}/if-option"));

class FindRelayTest : public HandlerTest {
 protected:
  L3IfLookup Find(const std::string& relay_if_name) {
    journal_.Clear();
    return Peer::FindRelayOfL3If(*handler_, relay_if_name);
  }
  void List(const std::string& instance, const std::string& relay_if_name) {
    confd_.SetExists("/config/dhcp/relay{" + instance + "}/interface{" + relay_if_name + "}", 1);
  }
};

TEST_F(FindRelayTest, EmptyListIsReadAndNothingFound) {
  const L3IfLookup lookup = Find("l3-5");
  EXPECT_FALSE(lookup.found);
  EXPECT_EQ(lookup.name, "");
  EXPECT_THAT(journal_.entries(),
              ElementsAre("session open", "cdb_num_instances /config/dhcp/relay",
                          "cdb_get_objects(1,0,0) /config/dhcp/relay", "session close"));
}

TEST_F(FindRelayTest, FindsTheInstanceThatListsTheInterface) {
  SetInstances({"r1", "r2", "r3"});
  List("r2", "l3-5");
  const L3IfLookup lookup = Find("l3-5");
  EXPECT_TRUE(lookup.found);
  EXPECT_EQ(lookup.name, "r2");
  EXPECT_THAT(journal_.StartingWith("cdb_"),
              ElementsAre("cdb_num_instances /config/dhcp/relay",
                          "cdb_get_objects(1,0,3) /config/dhcp/relay",
                          "cdb_exists /config/dhcp/relay{r1}/interface{l3-5}",
                          "cdb_exists /config/dhcp/relay{r2}/interface{l3-5}"));
}

TEST_F(FindRelayTest, FirstInstanceInTheDatabasesOrderWins) {
  SetInstances({"z", "a"});
  List("z", "l3-5");
  List("a", "l3-5");
  EXPECT_EQ(Find("l3-5").name, "z");
}

TEST_F(FindRelayTest, InterfaceThatNobodyListsIsNotFound) {
  SetInstances({"r1", "r2"});
  List("r1", "l3-55");
  const L3IfLookup lookup = Find("l3-5");
  EXPECT_FALSE(lookup.found);
  EXPECT_EQ(lookup.name, "");
  EXPECT_THAT(journal_.StartingWith("cdb_exists"),
              ElementsAre("cdb_exists /config/dhcp/relay{r1}/interface{l3-5}",
                          "cdb_exists /config/dhcp/relay{r2}/interface{l3-5}"));
}

TEST_F(FindRelayTest, ErrorCountsAsAHit) {
  SetInstances({"r1", "r2"});
  confd_.Fail("cdb_exists", "/config/dhcp/relay{r1}/interface{l3-5}", {});
  List("r2", "l3-5");
  EXPECT_EQ(Find("l3-5").name, "r1");
  EXPECT_THAT(middleware_.faults, IsEmpty());
}

TEST_F(FindRelayTest, KeysThatCannotBeRenderedAreSkipped) {
  SetInstances({"r1", "r2"});
  confd_.SetList("/config/dhcp/relay", {fakes::Unprintable(), fakes::Buf(""), fakes::Buf("r2")});
  confd_.SetExists("/config/dhcp/relay{}/interface{l3-5}", 1);
  List("r2", "l3-5");
  EXPECT_EQ(Find("l3-5").name, "r2");
  EXPECT_THAT(journal_.StartingWith("cdb_exists"),
              ElementsAre("cdb_exists /config/dhcp/relay{r2}/interface{l3-5}"));
}

TEST_F(FindRelayTest, EveryKeyIsReleasedBeforeTheSessionEnds) {
  SetInstances({"r1", "r2"});
  List("r1", "l3-5");
  Find("l3-5");
  EXPECT_THAT(
      journal_.StartingWithAny({"confd_free", "session"}),
      ElementsAre("session open", "confd_free_value r1", "confd_free_value r2", "session close"));
}

TEST_F(FindRelayTest, UsesOneSessionOnTheRunningDatabase) {
  SetInstances({"r1"});
  Find("l3-5");
  ASSERT_EQ(adapter_.sessions.size(), 1U);
  EXPECT_EQ(adapter_.sessions[0].interface, &interface_);
  EXPECT_EQ(adapter_.sessions[0].database, CDB_RUNNING);
  EXPECT_TRUE(adapter_.sessions[0].start);
}

TEST_F(FindRelayTest, KeysAreRenderedInto256Bytes) {
  SetInstances({"r1", "r2"});
  Find("l3-5");
  EXPECT_THAT(confd_.pp_value_sizes(), ElementsAre(256, 256));
}

TEST_F(FindRelayTest, LogsNothing) {
  log_.Enable(kTraceLevel);
  SetInstances({"r1"});
  log_.lines.clear();
  Find("l3-5");
  EXPECT_THAT(log_.lines, IsEmpty());
}

TEST_F(FindRelayTest, FailedCountEndsTheProcess) {
  confd_.Fail("cdb_num_instances", "/config/dhcp/relay", {});
  EXPECT_EXIT(Peer::FindRelayOfL3If(*handler_, "l3-5"), ExitedWithCode(1), "");
}

TEST_F(FindRelayTest, LeavesTheBatchAlone) {
  SetInstances({"r1"});
  List("r1", "l3-5");
  Batch().emplace_back("old");
  Find("l3-5");
  EXPECT_THAT(BatchNames(), ElementsAre("old"));
}

class BatchTest : public HandlerTest {};

TEST_F(BatchTest, RecordOfAnInstanceIsFoundOrAppended) {
  DhcpRelayIntf& first = Peer::GetOrAddRelayIntf(*handler_, "b");
  Peer::GetOrAddRelayIntf(*handler_, "a");
  Peer::GetOrAddRelayIntf(*handler_, "B");
  EXPECT_EQ(&Peer::GetOrAddRelayIntf(*handler_, "b"), &first);
  EXPECT_THAT(BatchNames(), ElementsAre("b", "a", "B"));
  EXPECT_EQ(Batch().front(), DhcpRelayIntf("b"));
}

}  // namespace
}  // namespace dhcp_relay_app
