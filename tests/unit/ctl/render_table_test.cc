// How the relay table and the status are printed.

#include "ctl/render_table.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

namespace control = dhcp_relay::control;

void SetAll(bool check, bool trusted, bool option, const std::string& policy,
            control::Settings* settings) {
  settings->set_check(check);
  settings->set_trusted(trusted);
  settings->set_option(option);
  settings->set_policy(policy);
}

control::Interface& AddInterface(const std::string& name, control::Instance& instance) {
  auto& interface = *instance.add_interfaces();
  interface.set_name(name);
  return interface;
}

control::Override& AddOverride(const std::string& name, control::Instance& instance) {
  auto& override = *instance.add_overrides();
  override.set_name(name);
  return override;
}

TEST(TableAsJson, IsOneLineInAFixedOrder) {
  control::Instance instance;
  instance.set_name("r1");
  instance.add_servers(0x0A000001);
  SetAll(false, true, true, "drop", instance.mutable_settings());
  instance.set_vrf(0x01000007);
  auto& interface = AddInterface("l3-5", instance);
  interface.set_vlan(5);
  interface.set_address(0xC0A80101);
  SetAll(true, false, false, "keep", AddOverride("l3-5", instance).mutable_settings());
  EXPECT_EQ(relayctl::TableAsJson({instance}),
            R"({"instances":[{"name":"r1","servers":["10.0.0.1"],"check":false,"trusted":true,)"
            R"("option":true,"policy":"drop","vrf":"0x01000007",)"
            R"("interfaces":[{"name":"l3-5","vlan":5,"address":"192.168.1.1"}],)"
            R"("overrides":[{"name":"l3-5","check":true,"trusted":false,"option":false,)"
            R"("policy":"keep"}]}]})");
}

TEST(TableAsJson, IsNullForWhatWasNeverSet) {
  control::Instance instance;
  instance.set_name("r1");
  AddInterface("l3-5", instance);
  AddOverride("l3-6", instance);
  EXPECT_EQ(relayctl::TableAsJson({instance}),
            R"({"instances":[{"name":"r1","servers":[],"check":null,"trusted":null,"option":null,)"
            R"("policy":null,"vrf":null,"interfaces":[{"name":"l3-5","vlan":null,"address":null}],)"
            R"("overrides":[{"name":"l3-6","check":null,"trusted":null,"option":null,)"
            R"("policy":null}]}]})");
}

TEST(TableAsJson, OfAnEmptyTableHasNoInstances) {
  EXPECT_EQ(relayctl::TableAsJson({}), R"({"instances":[]})");
}

TEST(TableAsText, IsForPeople) {
  EXPECT_EQ(relayctl::TableAsText({}), "no relay instances\n");
  control::Instance instance;
  instance.set_name("r1");
  instance.add_servers(0x0A000001);
  instance.add_servers(0x0A000002);
  instance.mutable_settings()->set_check(true);
  AddInterface("l3-5", instance).set_vlan(5);
  AddOverride("l3-5", instance).mutable_settings()->set_policy("replace");
  control::Instance bare;
  bare.set_name("r2");
  EXPECT_EQ(relayctl::TableAsText({instance, bare}),
            "relay r1\n"
            "  servers: 10.0.0.1, 10.0.0.2\n"
            "  VRF: -\n"
            "  settings: check on, trusted -, option -, policy -\n"
            "  interface l3-5: VLAN 5, address -\n"
            "  override l3-5: check -, trusted -, option -, policy replace\n"
            "relay r2\n"
            "  servers: -\n"
            "  VRF: -\n"
            "  settings: check -, trusted -, option -, policy -\n");
}

}  // namespace
