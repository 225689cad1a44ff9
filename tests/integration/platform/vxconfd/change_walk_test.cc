// What a commit's changes are reported as to a handler, on a real datastore.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <confd_lib.h>
#include <vx/schema_hash.h>
#include <vxconfd/vxconfd.h>
#include <vxmw/vxmw.h>

#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kRelay[] = "/config/dhcp/relay";
constexpr char kVlan[] = "/config/interface/l3/lower-layer-if/vlan";
constexpr char kIp[] = "/config/interface/l3/ipv4/address/ip";

constexpr char kInitial[] = R"({
  "metacli-internal:internal": { "vrf-config": { "stringTOindex": [
      { "name": "red", "vrf-idx": 7 }, { "name": "blue", "vrf-idx": 12 } ] } },
  "vx-config:config": {
      "vx-interface:interface": { "l3": [ { "name": "5", "lower-layer-if": { "vlan": 5 },
          "ipv4": { "address": { "ip": "192.168.5.1/24" } } } ] },
      "vx-dhcp-relay:dhcp": { "relay": [ { "name": "r1", "vrf": "red",
          "interface": [ { "name": "l3-5" } ],
          "relay-information": { "check": true },
          "server": { "ipv4": [ { "address": "10.0.0.1" } ] } } ] } } })";

constexpr char kDelete[] = R"({ "ietf-netconf:operation": "delete" })";

std::string Relay(const std::string& members) {
  return R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [ { )" + members +
         " } ] } } }";
}

std::string L3(const std::string& members) {
  return R"({ "vx-config:config": { "vx-interface:interface": { "l3": [ { )" + members +
         " } ] } } }";
}

std::string Removed(const std::string& name, const std::string& value) {
  return "\"" + name + "\": " + value + ", \"@" + name + "\": " + kDelete;
}

std::string OperationName(confd_iter_op operation) {
  switch (operation) {
    case MOP_CREATED:
      return "created";
    case MOP_DELETED:
      return "deleted";
    case MOP_MODIFIED:
      return "modified";
    case MOP_VALUE_SET:
      return "set";
    case MOP_MOVED_AFTER:
      return "moved";
    case MOP_ATTR_SET:
      break;
  }
  return "unexpected";
}

std::string Text(const confd_value_t* value) {
  char text[256] = {};
  confd_pp_value(text, sizeof(text), value);
  return text;
}

// One line a report: "set /config/a{b}/c old=1 new=2".
std::string Line(const confd_hkeypath_t* kp, confd_iter_op operation,
                 const confd_value_t* old_value, const confd_value_t* new_value) {
  char path[256] = {};
  confd_pp_kpath(path, sizeof(path), kp);
  std::string line = OperationName(operation) + " " + path;
  if (old_value != nullptr) line += " old=" + Text(old_value);
  if (new_value != nullptr) line += " new=" + Text(new_value);
  return line;
}

class WalkHandler : public vxconfd::ConfigHandler {
 public:
  void Watch(const char* path, int flags = ITER_WANT_PREV) {
    points_.push_back({3, 0, path, flags, [this](auto* kp, auto op, auto* before, auto* after) {
                         lines.push_back(Line(kp, op, before, after));
                         return answer(kp);
                       }});
  }

  void LoadInitialConfig() override {}
  void ApplyInitialConfig() override {}
  void StartCommit() override { lines.emplace_back("start"); }
  void ApplyCommitConfig() override { lines.emplace_back("apply"); }

  std::vector<std::string> lines;
  std::function<confd_iter_ret(const confd_hkeypath_t*)> answer = [](const auto* /*kp*/) {
    return ITER_RECURSE;
  };
};

class ChangeWalkTest : public ::testing::Test {
 protected:
  ChangeWalkTest() { repository_.InstallModelsWithConfiguration(kInitial); }
  ~ChangeWalkTest() override { vxmw_finish(&mw_); }

  // What the handler hears of a commit.
  std::vector<std::string> Commit(const std::string& json) {
    vxconfd::AppInterface adapter(mw_, category_, "change_walk_test", ELEM_CONFD_PHASE_2);
    adapter.AddConfigHandler(&handler_);
    adapter.Init(0);
    handler_.lines.clear();
    EXPECT_TRUE(tests::ServeWhile(mw_, [&] { repository_.Edit(json); }));
    return handler_.lines;
  }

  std::vector<std::string> Commit(const char* path, const std::string& json) {
    handler_.Watch(path);
    return Commit(json);
  }

  tests::PrivateRepository repository_;
  vxmw_t* mw_ = vxmw_init("change_walk_test");
  zlog_category_t* category_ = nullptr;
  WalkHandler handler_;
};

TEST_F(ChangeWalkTest, ReportsACreatedEntryThenItsChildrenKeysFirstAndNoDefaults) {
  EXPECT_THAT(
      Commit(kRelay, Relay(R"("server": { "ipv4": [ { "address": "10.0.0.2" } ] },
          "if-option": [ { "relay-information": { "policy": "drop" }, "name": "l3-5" } ],
          "relay-information": { "trusted": true, "option": false },
          "interface": [ { "name": "l3-5" } ], "vrf": "blue", "name": "r2")")),
      ElementsAre(
          "start", "created /config/dhcp/relay{r2}", "set /config/dhcp/relay{r2}/name new=r2",
          "set /config/dhcp/relay{r2}/vrf new=blue",
          "created /config/dhcp/relay{r2}/interface{l3-5}",
          "set /config/dhcp/relay{r2}/interface{l3-5}/name new=l3-5",
          "set /config/dhcp/relay{r2}/relay-information/option new=false",
          "set /config/dhcp/relay{r2}/relay-information/trusted new=true",
          "created /config/dhcp/relay{r2}/if-option{l3-5}",
          "set /config/dhcp/relay{r2}/if-option{l3-5}/name new=l3-5",
          "set /config/dhcp/relay{r2}/if-option{l3-5}/relay-information/policy new=enum<0>",
          "created /config/dhcp/relay{r2}/server/ipv4{10.0.0.2}",
          "set /config/dhcp/relay{r2}/server/ipv4{10.0.0.2}/address new=10.0.0.2", "apply"));
}

TEST_F(ChangeWalkTest, ReportsAChangedLeafBehindItsModifiedEntryWithThePreviousValue) {
  EXPECT_THAT(Commit(kRelay, Relay(R"("name": "r1", "vrf": "blue")")),
              ElementsAre("start", "modified /config/dhcp/relay{r1}",
                          "set /config/dhcp/relay{r1}/vrf old=red new=blue", "apply"));
}

TEST_F(ChangeWalkTest, LeavesThePreviousValueOutWhereItIsNotWanted) {
  handler_.Watch(kVlan, 0);
  EXPECT_THAT(
      Commit(L3(R"("name": "5", "lower-layer-if": { "vlan": 6 })")),
      ElementsAre("start", "set /config/interface/l3{5}/lower-layer-if/vlan new=6", "apply"));
}

TEST_F(ChangeWalkTest, ReportsALeafThatLeftItsDefaultWithTheDefaultAsPreviousValue) {
  EXPECT_THAT(
      Commit(kRelay, Relay(R"("name": "r1", "relay-information": { "policy": "replace" })")),
      ElementsAre("start", "modified /config/dhcp/relay{r1}",
                  "set /config/dhcp/relay{r1}/relay-information/policy old=enum<1> new=enum<2>",
                  "apply"));
}

TEST_F(ChangeWalkTest, ReportsARemovedLeafThatHasADefaultAsSetToIt) {
  EXPECT_THAT(Commit(kRelay, Relay(R"("name": "r1", "relay-information": { )" +
                                   Removed("check", "true") + " }")),
              ElementsAre("start", "modified /config/dhcp/relay{r1}",
                          "set /config/dhcp/relay{r1}/relay-information/check old=true new=false",
                          "apply"));
}

TEST_F(ChangeWalkTest, ReportsARemovedLeafWithoutDefaultAsDeletedWithoutANewValue) {
  EXPECT_THAT(Commit(kRelay, Relay(R"("name": "r1", )" + Removed("vrf", R"("red")"))),
              ElementsAre("start", "modified /config/dhcp/relay{r1}",
                          "deleted /config/dhcp/relay{r1}/vrf old=red", "apply"));
}

TEST_F(ChangeWalkTest, ReportsARemovedEntryOnceAndNothingBelowIt) {
  EXPECT_THAT(Commit(kRelay, Relay(R"("name": "r1", "@": )" + std::string(kDelete))),
              ElementsAre("start", "deleted /config/dhcp/relay{r1}", "apply"));
}

TEST_F(ChangeWalkTest, ReportsARemovedEntryBehindItsModifiedParent) {
  EXPECT_THAT(Commit(kRelay, Relay(R"("name": "r1", "server": { "ipv4": [
          { "address": "10.0.0.1", "@": )" +
                                   std::string(kDelete) + " } ] }")),
              ElementsAre("start", "modified /config/dhcp/relay{r1}",
                          "deleted /config/dhcp/relay{r1}/server/ipv4{10.0.0.1}", "apply"));
}

TEST_F(ChangeWalkTest, ReportsAnEntryMadeAnewOnlyByWhatIsDifferent) {
  EXPECT_THAT(
      Commit(kRelay, Relay(R"("name": "r1", "vrf": "blue", "interface": [ { "name": "l3-5" } ],
          "@": { "ietf-netconf:operation": "replace" })")),
      ElementsAre("start", "modified /config/dhcp/relay{r1}",
                  "set /config/dhcp/relay{r1}/vrf old=red new=blue",
                  "set /config/dhcp/relay{r1}/relay-information/check old=true new=false",
                  "deleted /config/dhcp/relay{r1}/server/ipv4{10.0.0.1}", "apply"));
}

TEST_F(ChangeWalkTest, CallsNothingWhenADefaultIsMadeExplicit) {
  EXPECT_THAT(Commit(kRelay, Relay(R"("name": "r1", "relay-information": { "option": false })")),
              IsEmpty());
}

TEST_F(ChangeWalkTest, LeavesAnEntryOutInWhichADefaultWasMadeExplicit) {
  EXPECT_THAT(Commit(kRelay, R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
                  { "name": "r1", "relay-information": { "option": false } },
                  { "name": "r2" } ] } } })"),
              ElementsAre("start", "created /config/dhcp/relay{r2}",
                          "set /config/dhcp/relay{r2}/name new=r2", "apply"));
}

TEST_F(ChangeWalkTest, ReportsWhatLiesAtThePointButNothingAboveIt) {
  EXPECT_THAT(
      Commit(kVlan, L3(R"("name": "6", "lower-layer-if": { "vlan": 6 })")),
      ElementsAre("start", "set /config/interface/l3{6}/lower-layer-if/vlan new=6", "apply"));
}

TEST_F(ChangeWalkTest, CallsNothingWhenAnEntryAboveThePointIsRemoved) {
  EXPECT_THAT(Commit(kVlan, L3(R"("name": "5", "@": )" + std::string(kDelete))), IsEmpty());
}

TEST_F(ChangeWalkTest, ReportsALeafThatWentWithItsContainerAbove) {
  EXPECT_THAT(
      Commit(kVlan, L3(R"("name": "5", "lower-layer-if": { "@": )" + std::string(kDelete) + " }")),
      ElementsAre("start", "deleted /config/interface/l3{5}/lower-layer-if/vlan old=5", "apply"));
}

TEST_F(ChangeWalkTest, CallsNothingForACommitBesideThePoints) {
  EXPECT_THAT(Commit(kVlan, L3(R"("name": "5", "ipv4": { "address": { "ip": "10.9.8.7/8" } })")),
              IsEmpty());
}

TEST_F(ChangeWalkTest, ServesThePointsInTheirOrderWithinOneCommit) {
  handler_.Watch(kVlan);
  handler_.Watch(kRelay);
  handler_.Watch(kIp);
  EXPECT_THAT(
      Commit(R"({ "vx-config:config": {
          "vx-interface:interface": { "l3": [ { "name": "5", "lower-layer-if": { "vlan": 6 },
              "ipv4": { "address": { "ip": "10.9.8.7/8" } } } ] },
          "vx-dhcp-relay:dhcp": { "relay": [ { "name": "r1", "vrf": "blue" } ] } } })"),
      ElementsAre("start", "set /config/interface/l3{5}/lower-layer-if/vlan old=5 new=6",
                  "modified /config/dhcp/relay{r1}",
                  "set /config/dhcp/relay{r1}/vrf old=red new=blue",
                  "set /config/interface/l3{5}/ipv4/address/ip old=192.168.5.1/24 new=10.9.8.7/8",
                  "apply"));
}

TEST_F(ChangeWalkTest, ContinueSkipsTheChildrenOnly) {
  handler_.answer = [](const auto* kp) { return kp->len == 4 ? ITER_CONTINUE : ITER_RECURSE; };
  EXPECT_THAT(Commit(kRelay, R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
                  { "name": "r1", "vrf": "blue" }, { "name": "r2" } ] } } })"),
              ElementsAre("start", "modified /config/dhcp/relay{r1}",
                          "created /config/dhcp/relay{r2}", "apply"));
}

TEST_F(ChangeWalkTest, StopEndsTheWalkOfThisPointOnly) {
  handler_.Watch(kRelay);
  handler_.Watch(kRelay);
  handler_.answer = [](const auto* kp) { return kp->len == 4 ? ITER_RECURSE : ITER_STOP; };
  EXPECT_THAT(Commit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
          { "name": "r1", "vrf": "blue", "relay-information": { "option": true } },
          { "name": "r2" } ] } } })"),
              ElementsAre("start", "modified /config/dhcp/relay{r1}",
                          "set /config/dhcp/relay{r1}/vrf old=red new=blue",
                          "modified /config/dhcp/relay{r1}",
                          "set /config/dhcp/relay{r1}/vrf old=red new=blue", "apply"));
}

TEST_F(ChangeWalkTest, LaysAKeyPathOutFromTheChangedNodeOutwards) {
  int paths = 0;
  handler_.answer = [&paths](const auto* kp) {
    if (kp->len != 8) return ITER_RECURSE;
    ++paths;
    EXPECT_EQ(CONFD_GET_XMLTAG(&kp->v[0][0]), vx_schema::kTagAddress);
    EXPECT_EQ(Text(&kp->v[1][0]), "10.0.0.2");
    EXPECT_EQ(kp->v[1][0].type, C_IPV4);
    EXPECT_EQ(kp->v[1][1].type, C_NOEXISTS);
    EXPECT_EQ(CONFD_GET_XMLTAG(&kp->v[2][0]), vx_schema::kTagIpv4);
    EXPECT_EQ(kp->v[3][0].type, C_XMLTAG);
    EXPECT_STREQ(reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&kp->v[4][0])), "r1");
    EXPECT_EQ(CONFD_GET_XMLTAG(&kp->v[5][0]), vx_schema::kTagRelay);
    EXPECT_EQ(CONFD_GET_XMLTAG_NS(&kp->v[5][0]), vx_schema::kNsDhcpRelay);
    EXPECT_EQ(kp->v[7][0].type, C_XMLTAG);
    return ITER_RECURSE;
  };
  Commit(kRelay, Relay(R"("name": "r1", "server": { "ipv4": [ { "address": "10.0.0.2" } ] })"));
  EXPECT_EQ(paths, 1);
}

TEST_F(ChangeWalkTest, AnExceptionOfACallbackEndsTheDeliveryAndComesOutOfTheLoop) {
  handler_.Watch(kRelay);
  handler_.Watch(kRelay);
  handler_.answer = [](const auto* /*kp*/) -> confd_iter_ret {
    throw std::out_of_range("from the handler");
  };
  EXPECT_THROW(Commit(Relay(R"("name": "r1", "vrf": "blue")")), std::out_of_range);
  EXPECT_THAT(handler_.lines, ElementsAre("start", "modified /config/dhcp/relay{r1}"));
}

// What the relay's models have none of.
class OtherModelWalkTest : public ChangeWalkTest {
 protected:
  OtherModelWalkTest() {
    repository_.InstallModel("walk", R"(module walk { yang-version 1.1; namespace "urn:test:walk";
        prefix w; container walk {
          container lamp { presence "there is a lamp"; leaf watt { type int32; } }
          list pair { key "left right"; leaf left { type string; } leaf right { type int32; }
            leaf note { type string; } } } })");
  }
};

TEST_F(OtherModelWalkTest, ReportsAContainerWithPresenceAsAnEntry) {
  EXPECT_THAT(Commit("/walk", R"({ "walk:walk": { "lamp": { "watt": 40 } } })"),
              ElementsAre("start", "created /walk/lamp", "set /walk/lamp/watt new=40", "apply"));
  EXPECT_THAT(
      Commit(R"({ "walk:walk": { "lamp": { "watt": 60 } } })"),
      ElementsAre("start", "modified /walk/lamp", "set /walk/lamp/watt old=40 new=60", "apply"));
  EXPECT_THAT(Commit(R"({ "walk:walk": { "lamp": { "@": { "ietf-netconf:operation": "delete" } }
                      } })"),
              ElementsAre("start", "deleted /walk/lamp", "apply"));
}

TEST_F(OtherModelWalkTest, ReportsAllKeysOfAnEntry) {
  EXPECT_THAT(
      Commit("/walk/pair", R"({ "walk:walk": { "pair": [
                  { "left": "a", "right": 2, "note": "n" } ] } })"),
      ElementsAre("start", "created /walk/pair{a 2}", "set /walk/pair{a 2}/left new=a",
                  "set /walk/pair{a 2}/right new=2", "set /walk/pair{a 2}/note new=n", "apply"));
}

// Types that the read API has no value for. Each change is left out with one line that names it.
class UnreadableChangeTest : public ChangeWalkTest {
 protected:
  UnreadableChangeTest() {
    vxmw_trace_init(mw_, "change_walk_test");
    category_ = vxmw_trace_register_category("change_walk_test");
    repository_.InstallModel("odd", R"(module odd { yang-version 1.1; namespace "urn:test:odd";
        prefix o; identity base; identity one { base base; }
        container odd {
          leaf i8 { type int8; } leaf i16 { type int16; } leaf i64 { type int64; }
          leaf u8 { type uint8; } leaf u16 { type uint16; } leaf u64 { type uint64; }
          leaf fraction { type decimal64 { fraction-digits 2; } }
          leaf either { type union { type int32; type string; } }
          leaf flags { type bits { bit a; bit b; } }
          leaf kind { type identityref { base base; } }
          leaf nothing { type empty; }
          leaf-list word { type string; }
          list slot { key "number"; leaf number { type decimal64 { fraction-digits 1; } }
            leaf note { type string; } }
          leaf plain { type string; } } })");
  }

  // What standard error gets of a commit.
  std::string Log(const std::string& json) {
    testing::internal::CaptureStderr();
    Commit(json);
    return testing::internal::GetCapturedStderr();
  }
};

constexpr char kAllTypes[] = R"({ "odd:odd": { "i8": 1, "i16": 2, "i64": "3", "u8": 4, "u16": 5,
    "u64": "6", "fraction": "7.5", "either": "e", "flags": "a", "kind": "odd:one",
    "nothing": [null], "word": [ "w" ], "plain": "p" } })";

TEST_F(UnreadableChangeTest, EveryOtherChangeOfTheCommitIsReported) {
  EXPECT_THAT(Commit("/odd", kAllTypes),
              ElementsAre("start", "set /odd/i8 new=1", "set /odd/i16 new=2", "set /odd/i64 new=3",
                          "set /odd/u8 new=4", "set /odd/u16 new=5", "set /odd/u64 new=6",
                          "set /odd/plain new=p", "apply"));
}

TEST_F(UnreadableChangeTest, EachIsNamedInOneLine) {
  handler_.Watch("/odd");
  const std::string log = Log(kAllTypes);
  for (const char* name : {"fraction", "either", "flags", "kind", "nothing", "word[.='w']"}) {
    EXPECT_THAT(log, HasSubstr("the change of /odd:odd/" + std::string(name) + " is skipped"));
  }
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 6) << log;
}

TEST_F(UnreadableChangeTest, AnEntryWithSuchAKeyIsLeftOutWithAllThatIsInIt) {
  handler_.Watch("/odd");
  const std::string log =
      Log(R"({ "odd:odd": { "slot": [ { "number": "7.5", "note": "n" } ], "plain": "p" } })");
  EXPECT_THAT(handler_.lines, ElementsAre("start", "set /odd/plain new=p", "apply"));
  EXPECT_THAT(log, HasSubstr("the change of /odd:odd/slot[number='7.5'] is skipped"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(UnreadableChangeTest, TheirRemovalIsNamedToo) {
  handler_.Watch("/odd");
  Commit(R"({ "odd:odd": { "fraction": "7.5", "word": [ "w" ] } })");
  const std::string log = Log(R"({ "odd:odd": { )" + Removed("fraction", R"("7.5")") + " } }");
  EXPECT_THAT(log, HasSubstr("the change of /odd:odd/fraction is skipped"));
}

}  // namespace
