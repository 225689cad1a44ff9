// How the state of the relay is printed.

#include "ctl/render_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/control/outcome.h"
#include "protocol/control/outcome_counts.h"

namespace {

namespace control = dhcp_relay::control;
using ::testing::HasSubstr;

// Two outcomes a list, to keep the expected lines short; what the client hands over is complete.
void SetOutcomes(std::uint64_t relayed, std::uint64_t malformed, control::OutcomeCounts* list) {
  list->Clear();
  for (const auto& [name, count] : {std::pair{"relayed", relayed}, {"malformed", malformed}}) {
    auto& entry = *list->Add();
    entry.set_outcome(name);
    entry.set_count(count);
  }
}

control::RelayInterface MakeInterface(const std::string& instance, const std::string& name,
                                      const std::string& state) {
  control::RelayInterface interface;
  interface.set_instance(instance);
  interface.set_name(name);
  interface.set_state(state);
  auto& settings = *interface.mutable_settings();
  settings.set_check(false);
  settings.set_trusted(true);
  settings.set_option(true);
  settings.set_policy("replace");
  SetOutcomes(0, 0, interface.mutable_request_outcomes());
  SetOutcomes(0, 0, interface.mutable_reply_outcomes());
  return interface;
}

control::RelayState MakeState() {
  control::RelayState state;
  auto& first = state.instances.emplace_back();
  first.set_name("r1");
  first.set_vrf_device("red");
  auto& server = *first.add_servers();
  server.set_address(0x0A000001);
  server.set_sent(12);
  server.set_failed(3);
  server.set_replies(9);
  auto& second = state.instances.emplace_back();
  second.set_name("r2");
  second.set_vrf_missing(true);
  auto& interface = state.interfaces.emplace_back(MakeInterface("r1", "l3-5", "up"));
  interface.set_vlan(5);
  interface.set_address(0xC0A80501);
  interface.set_link("eth0.5");
  interface.set_requests(15);
  interface.set_option_left_out(2);
  interface.set_replies(9);
  SetOutcomes(12, 3, interface.mutable_request_outcomes());
  SetOutcomes(9, 0, interface.mutable_reply_outcomes());
  state.interfaces.push_back(MakeInterface("r1", "l3-6", "no-address"));
  state.unmatched.set_received(4);
  SetOutcomes(0, 4, state.unmatched.mutable_outcomes());
  state.kernel_drops.set_requests(5);
  state.kernel_drops.set_replies(0);
  state.kernel_drops.set_link_events(1);
  return state;
}

TEST(Instances, CountTheirServersAndInterfaces) {
  EXPECT_EQ(relayctl::InstancesAsJson(MakeState()),
            R"({"instances":[{"name":"r1","vrf_device":"red","vrf_missing":false,"servers":1,)"
            R"("interfaces":2,"interfaces_up":1},{"name":"r2","vrf_device":null,)"
            R"("vrf_missing":true,"servers":0,"interfaces":0,"interfaces_up":0}]})");
  EXPECT_EQ(relayctl::InstancesAsText(MakeState()),
            "INSTANCE  VRF      SERVERS  INTERFACES  UP\n"
            "r1        red      1        2           1\n"
            "r2        missing  0        0           0\n");
}

TEST(Interfaces, HaveTheirStateAndSettings) {
  EXPECT_EQ(relayctl::InterfacesAsJson(MakeState()),
            R"({"interfaces":[{"instance":"r1","name":"l3-5","vlan":5,"address":"192.168.5.1",)"
            R"("state":"up","reason":null,"link":"eth0.5","check":false,"trusted":true,)"
            R"("option":true,"policy":"replace"},)"
            R"({"instance":"r1","name":"l3-6","vlan":null,"address":null,)"
            R"("state":"no-address","reason":null,"link":null,"check":false,"trusted":true,)"
            R"("option":true,"policy":"replace"}]})");
  EXPECT_EQ(relayctl::InterfacesAsText(MakeState()),
            "INSTANCE  INTERFACE  VLAN  ADDRESS      STATE       LINK    "
            "SETTINGS IN FORCE                                 REASON\n"
            "r1        l3-5       5     192.168.5.1  up          eth0.5  "
            "check off, trusted on, option on, policy replace\n"
            "r1        l3-6       -     -            no-address  -       "
            "check off, trusted on, option on, policy replace\n");
}

TEST(Interfaces, HaveTheReasonOfTheirState) {
  control::RelayState state;
  auto& interface = state.interfaces.emplace_back(MakeInterface("r1", "l3-5", "no-socket"));
  interface.set_reason("Address already in use");
  EXPECT_EQ(relayctl::InterfacesAsText(state),
            "INSTANCE  INTERFACE  VLAN  ADDRESS  STATE      LINK  "
            "SETTINGS IN FORCE                                 REASON\n"
            "r1        l3-5       -     -        no-socket  -     "
            "check off, trusted on, option on, policy replace  Address already in use\n");
  EXPECT_THAT(relayctl::InterfacesAsJson(state),
              HasSubstr(R"("state":"no-socket","reason":"Address already in use")"));
}

TEST(Counters, AreCompleteAsJson) {
  EXPECT_EQ(relayctl::CountersAsJson(MakeState()),
            R"({"interfaces":[{"instance":"r1","name":"l3-5",)"
            R"("requests":{"received":15,"relayed":12,"malformed":3},"option_left_out":2,)"
            R"("replies":{"received":9,"relayed":9,"malformed":0}},)"
            R"({"instance":"r1","name":"l3-6",)"
            R"("requests":{"received":0,"relayed":0,"malformed":0},"option_left_out":0,)"
            R"("replies":{"received":0,"relayed":0,"malformed":0}}],)"
            R"("other":{"received":4,"relayed":0,"malformed":4},)"
            R"("kernel_drops":{"requests":5,"replies":0,"link_events":1},"received":28})");
}

TEST(Counters, AreWithoutZerosAsText) {
  EXPECT_EQ(relayctl::CountersAsText(MakeState()),
            "r1 l3-5\n"
            "  requests 15 (relayed 12, malformed 3)\n"
            "  sent without option 82, no room 2\n"
            "  replies 9 (relayed 9)\n"
            "r1 l3-6\n"
            "  requests 0\n"
            "  replies 0\n"
            "other 4 (malformed 4)\n"
            "dropped by the kernel: requests 5, replies 0, link events 1\n");
}

TEST(Servers, HaveTheirCounters) {
  EXPECT_EQ(relayctl::ServersAsJson(MakeState()),
            R"({"servers":[{"instance":"r1","address":"10.0.0.1","sent":12,"failed":3,)"
            R"("replies":9}]})");
  EXPECT_EQ(relayctl::ServersAsText(MakeState()),
            "INSTANCE  SERVER    SENT  FAILED  REPLIES\n"
            "r1        10.0.0.1  12    3       9\n");
}

TEST(EmptyState, IsToldInWords) {
  const control::RelayState state;
  EXPECT_EQ(relayctl::InstancesAsText(state), "no relay instances\n");
  EXPECT_EQ(relayctl::InterfacesAsText(state), "no relay interfaces\n");
  EXPECT_EQ(relayctl::ServersAsText(state), "no servers\n");
  EXPECT_EQ(relayctl::CountersAsText(state), "other 0\n");
  EXPECT_EQ(relayctl::InstancesAsJson(state), R"({"instances":[]})");
}

TEST(Names, OfAnyBytesAreOneLineOfJson) {
  control::RelayState state;
  state.instances.emplace_back().set_name("a\n\xff");
  EXPECT_EQ(relayctl::InstancesAsJson(state),
            "{\"instances\":[{\"name\":\"a\\n\xEF\xBF\xBD\",\"vrf_device\":null,"
            "\"vrf_missing\":false,\"servers\":0,\"interfaces\":0,\"interfaces_up\":0}]}");
}

}  // namespace
