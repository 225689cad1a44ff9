// The tree that the datastore is given.

#include "state/state_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "protocol/control/outcome.h"
#include "protocol/control/outcome_counts.h"

namespace {

namespace control = dhcp_relay::control;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

constexpr std::uint32_t kServer = 0x0A000001;
constexpr std::uint32_t kAddress = 0xC0A80501;

control::RelayInstance MakeInstance(const std::string& name) {
  control::RelayInstance instance;
  instance.set_name(name);
  return instance;
}

// Each counter has a value of its own, from `first` on.
void FillOutcomes(std::span<const std::string> names, std::uint64_t first,
                  control::OutcomeCounts& list) {
  std::vector<std::uint64_t> counts(names.size());
  for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = first + i;
  control::AddOutcomes(names, counts, list);
}

control::RelayInterface MakeInterface(const std::string& instance, const std::string& name) {
  control::RelayInterface interface;
  interface.set_instance(instance);
  interface.set_name(name);
  interface.set_state("missing");
  interface.mutable_settings()->set_policy("keep");
  control::CompleteOutcomes(control::RequestOutcomes(), *interface.mutable_request_outcomes());
  control::CompleteOutcomes(control::ReplyOutcomes(), *interface.mutable_reply_outcomes());
  return interface;
}

class StateTreeTest : public ::testing::Test {
 protected:
  StateTreeTest() : context_(MakeContext()) {
    EXPECT_NE(ly_ctx_load_module(context_.get(), state::kStateModule, nullptr, nullptr), nullptr);
  }

  struct ContextDeleter {
    void operator()(ly_ctx* context) const { ly_ctx_destroy(context); }
  };
  using Context = std::unique_ptr<ly_ctx, ContextDeleter>;

  static Context MakeContext() {
    ly_ctx* context = nullptr;
    EXPECT_EQ(ly_ctx_new(VX_YANG_DIR, 0, &context), LY_SUCCESS);
    return Context(context);
  }

  void Make() { tree_ = state::MakeStateTree(context_.get(), status_, relay_); }

  // The values at `path` below the top, in their order.
  std::vector<std::string> Values(const std::string& path) const {
    ly_set* set = nullptr;
    EXPECT_EQ(lyd_find_xpath(tree_.get(), (state::kStatePath + ("/" + path)).c_str(), &set),
              LY_SUCCESS);
    std::vector<std::string> values;
    for (std::uint32_t i = 0; i < set->count; ++i) {
      values.emplace_back(lyd_get_value(set->dnodes[i]));
    }
    ly_set_free(set, nullptr);
    return values;
  }

  Context context_;
  control::Status status_;
  control::RelayState relay_;
  state::Tree tree_;
};

TEST_F(StateTreeTest, TellsTheStatus) {
  status_.set_connected(true);
  status_.set_calls(26);
  status_.set_dumps(2);
  status_.set_journal_dropped(3);
  Make();
  EXPECT_THAT(Values("connected"), ElementsAre("true"));
  EXPECT_THAT(Values("in-sync"), ElementsAre("false"));
  EXPECT_THAT(Values("calls"), ElementsAre("26"));
  EXPECT_THAT(Values("dumps"), ElementsAre("2"));
  EXPECT_THAT(Values("journal-dropped"), ElementsAre("3"));
  EXPECT_THAT(Values("instance/name"), IsEmpty());
}

TEST_F(StateTreeTest, TellsWhatIsWrongWithSockets) {
  auto& missing = *status_.add_missing_sockets();
  missing.set_vrf_device("red");
  missing.set_reason("Address already in use");
  status_.add_missing_sockets()->set_reason("Operation not permitted");
  auto& competing = *status_.add_competing_sockets();
  competing.set_address(kAddress);
  competing.set_user(5);
  competing.set_inode(99);
  Make();
  EXPECT_THAT(Values("missing-socket[1]/*"), ElementsAre("red", "Address already in use"));
  EXPECT_THAT(Values("missing-socket[2]/*"), ElementsAre("Operation not permitted"));
  EXPECT_THAT(Values("competing-socket/*"), ElementsAre("192.168.5.1", "5", "99"));
}

TEST_F(StateTreeTest, TellsWhyAnInterfaceHasNoSocket) {
  relay_.instances.push_back(MakeInstance("r1"));
  auto& interface = relay_.interfaces.emplace_back(MakeInterface("r1", "l3-5"));
  interface.set_state("no-socket");
  interface.set_reason("Address already in use");
  Make();
  EXPECT_THAT(Values("instance/interface/state"), ElementsAre("no-socket"));
  EXPECT_THAT(Values("instance/interface/reason"), ElementsAre("Address already in use"));
}

TEST_F(StateTreeTest, HoldsInstancesWithTheirServers) {
  auto& instance = relay_.instances.emplace_back(MakeInstance("r1"));
  instance.set_vrf_device("red");
  auto& server = *instance.add_servers();
  server.set_address(kServer);
  server.set_sent(5);
  server.set_failed(1);
  server.set_replies(4);
  relay_.instances.emplace_back(MakeInstance("r2")).set_vrf_missing(true);
  Make();
  EXPECT_THAT(Values("instance/name"), ElementsAre("r1", "r2"));
  EXPECT_THAT(Values("instance/vrf-device"), ElementsAre("red"));
  EXPECT_THAT(Values("instance/vrf-missing"), ElementsAre("false", "true"));
  EXPECT_THAT(Values("instance[name='r1']/server/*"), ElementsAre("10.0.0.1", "5", "1", "4"));
}

TEST_F(StateTreeTest, PutsEachInterfaceBelowItsInstance) {
  for (const char* name : {"r1", "r2", "r3"}) relay_.instances.push_back(MakeInstance(name));
  relay_.interfaces = {MakeInterface("r1", "l3-5"), MakeInterface("r1", "l3-6"),
                       MakeInterface("r3", "l3-7")};
  Make();
  EXPECT_THAT(Values("instance[name='r1']/interface/name"), ElementsAre("l3-5", "l3-6"));
  EXPECT_THAT(Values("instance[name='r2']/interface/name"), IsEmpty());
  EXPECT_THAT(Values("instance[name='r3']/interface/name"), ElementsAre("l3-7"));
}

TEST_F(StateTreeTest, TellsWhereAnInterfaceRelaysAndWithWhatSettings) {
  relay_.instances.push_back(MakeInstance("r1"));
  auto& interface = relay_.interfaces.emplace_back(MakeInterface("r1", "l3-5"));
  interface.set_vlan(5);
  interface.set_address(kAddress);
  interface.set_state("duplicate-address");
  interface.set_link("eth0.5");
  interface.mutable_settings()->set_check(true);
  interface.mutable_settings()->set_option(true);
  interface.mutable_settings()->set_policy("replace");
  relay_.interfaces.push_back(MakeInterface("r1", "l3-6"));
  Make();
  EXPECT_THAT(Values("instance/interface[name='l3-5']/*[not(*)]"),
              ElementsAre("l3-5", "5", "192.168.5.1", "duplicate-address", "eth0.5", "0"));
  EXPECT_THAT(Values("instance/interface[name='l3-5']/in-force/*"),
              ElementsAre("true", "false", "true", "replace"));
  EXPECT_THAT(Values("instance/interface[name='l3-6']/*[not(*)]"),
              ElementsAre("l3-6", "missing", "0"));
}

TEST_F(StateTreeTest, HoldsEveryCounter) {
  relay_.instances.push_back(MakeInstance("r1"));
  auto& interface = relay_.interfaces.emplace_back(MakeInterface("r1", "l3-5"));
  interface.set_requests(100);
  interface.clear_request_outcomes();
  FillOutcomes(control::RequestOutcomes(), 101, *interface.mutable_request_outcomes());
  interface.set_option_left_out(150);
  interface.set_replies(200);
  interface.clear_reply_outcomes();
  FillOutcomes(control::ReplyOutcomes(), 201, *interface.mutable_reply_outcomes());
  relay_.unmatched.set_received(300);
  FillOutcomes(control::UnmatchedOutcomes(), 301, *relay_.unmatched.mutable_outcomes());
  Make();
  EXPECT_THAT(Values("instance/interface/requests/*"),
              ElementsAre("100", "101", "102", "103", "104", "105", "106", "107", "108", "109",
                          "110", "111", "112", "113"));
  EXPECT_THAT(Values("instance/interface/requests/too-many-hops"), ElementsAre("103"));
  EXPECT_THAT(Values("instance/interface/option-left-out"), ElementsAre("150"));
  EXPECT_THAT(Values("instance/interface/replies/*"),
              ElementsAre("200", "201", "202", "203", "204", "205", "206", "207"));
  EXPECT_THAT(Values("instance/interface/replies/send-failed"), ElementsAre("207"));
  EXPECT_THAT(Values("other/*"), ElementsAre("300", "301", "302", "303", "304"));
}

TEST_F(StateTreeTest, HoldsWhatTheKernelDropped) {
  relay_.kernel_drops.set_requests(7);
  Make();
  EXPECT_THAT(Values("kernel-drops/*"), ElementsAre("7", "0"));
  relay_.kernel_drops.set_replies(8);
  relay_.kernel_drops.set_link_events(9);
  Make();
  EXPECT_THAT(Values("kernel-drops/*"), ElementsAre("7", "8", "9"));
  EXPECT_THAT(Values("kernel-drops/link-events"), ElementsAre("9"));
}

TEST_F(StateTreeTest, LeavesOutAnOutcomeThatTheModelDoesNotHave) {
  relay_.unmatched.set_received(2);
  control::AddOutcomes(std::vector<std::string>{"bewitched", "malformed"},
                       std::vector<std::uint64_t>{1, 1}, *relay_.unmatched.mutable_outcomes());
  Make();
  EXPECT_THAT(Values("other/*"), ElementsAre("2", "1"));
}

TEST_F(StateTreeTest, IsRefusedForAStateThatTheModelDoesNotHave) {
  relay_.instances.push_back(MakeInstance("r1"));
  relay_.interfaces.emplace_back(MakeInterface("r1", "l3-5")).set_state("bewitched");
  EXPECT_THAT([&] { Make(); }, ThrowsMessage<std::runtime_error>(HasSubstr("cannot write state")));
}

TEST_F(StateTreeTest, IsRefusedWithoutTheModule) {
  context_ = MakeContext();
  EXPECT_THAT([&] { Make(); }, ThrowsMessage<std::runtime_error>("no module vx-dhcp-relay-state"));
}

TEST_F(StateTreeTest, IsValid) {
  relay_.instances.push_back(MakeInstance("r1"));
  relay_.interfaces.push_back(MakeInterface("r1", "l3-5"));
  Make();
  lyd_node* tree = tree_.release();
  EXPECT_EQ(lyd_validate_all(&tree, nullptr, LYD_VALIDATE_PRESENT, nullptr), LY_SUCCESS);
  tree_.reset(tree);
}

}  // namespace
