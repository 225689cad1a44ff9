// The relay table combined with the kernel's links, and the counters of the result.

#include "dhcp_manager/table/forwarding.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "dhcp_manager/kernel/links.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/relay_table.h"
#include "tests/support/calls.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::Forwarding;
using dhcp_manager::InterfaceState;
using dhcp_manager::kDefaultVrf;
using dhcp_manager::Links;
using dhcp_manager::RelayInterface;
using dhcp_manager::RelayTable;

constexpr std::uint32_t kVrf7 = 0x01000007;

nettypes::IPv4Addr Ip(const std::string& text) { return *nettypes::IPv4Addr::parse(text); }
std::uint32_t Number(const std::string& text) { return Ip(text).host_order(); }

class ForwardingTest : public ::testing::Test {
 protected:
  void AddInterface(const std::string& instance, const std::string& name,
                    const std::string& address) {
    table_.Apply(tests::Call(wire::ADD_L3_INTERFACE, instance, name));
    if (!address.empty()) {
      table_.Apply(
          tests::AddressCall(wire::SET_L3_INTERFACE_ADDRESS, instance, Number(address), name));
    }
  }
  void AddLink(int index, const std::string& name, bool up = true, int master = 0) {
    links_.SetLink({.index = index,
                    .name = name,
                    .up = up,
                    .mac = {2, 0, 0, 0, 0, static_cast<std::uint8_t>(index)},
                    .master = master,
                    .vrf_table = std::nullopt});
  }
  void AddVrf(int index, std::uint32_t table) {
    links_.SetLink({.index = index, .name = "vrf" + std::to_string(table), .vrf_table = table});
  }
  void AddAddress(int link, const std::string& address, const std::string& broadcast = "0.0.0.0",
                  unsigned prefix_length = 32) {
    links_.SetAddress({.link = link,
                       .address = Ip(address),
                       .broadcast = Ip(broadcast),
                       .prefix_length = prefix_length});
  }
  Forwarding Make() const { return {table_, links_}; }
  InterfaceState StateOf(const std::string& name) const {
    const Forwarding forwarding = Make();
    for (const RelayInterface& interface : forwarding.interfaces()) {
      if (interface.name == name) return interface.state;
    }
    throw std::out_of_range(name);
  }

  RelayTable table_;
  Links links_;
};

TEST_F(ForwardingTest, FindsTheKernelInterfaceByItsAddress) {
  AddLink(2, "eth0");
  AddLink(3, "vlan5");
  AddAddress(2, "10.0.0.1");
  AddAddress(3, "192.168.5.1", "192.168.5.255");
  AddInterface("r1", "l3-5", "192.168.5.1");
  const Forwarding forwarding = Make();
  const RelayInterface& interface = forwarding.interfaces().at(0);
  EXPECT_EQ(interface.state, InterfaceState::kUp);
  EXPECT_EQ(interface.link, 3);
  EXPECT_EQ(interface.link_name, "vlan5");
  EXPECT_EQ(forwarding.FindByLink(3, Ip("255.255.255.255")), &interface);
  EXPECT_EQ(forwarding.FindByLink(2, Ip("255.255.255.255")), nullptr);
  EXPECT_EQ(forwarding.FindByAddress(kDefaultVrf, Ip("192.168.5.1")), &interface);
  EXPECT_EQ(forwarding.FindByAddress(kDefaultVrf, Ip("10.0.0.1")), nullptr);
}

TEST_F(ForwardingTest, TellsWhyAnInterfaceDoesNotRelay) {
  AddLink(2, "vlan5", false);
  AddAddress(2, "192.168.5.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  AddInterface("r1", "l3-6", "192.168.6.1");
  AddInterface("r1", "l3-7", "");
  AddInterface("r2", "l3-5x", "192.168.5.1");
  AddInterface("r3", "l3-8", "192.168.5.1");
  table_.Apply(tests::VrfCall("r3", kVrf7));
  EXPECT_EQ(StateOf("l3-5"), InterfaceState::kDown);
  EXPECT_EQ(StateOf("l3-6"), InterfaceState::kMissing);
  EXPECT_EQ(StateOf("l3-7"), InterfaceState::kNoAddress);
  EXPECT_EQ(StateOf("l3-5x"), InterfaceState::kDuplicateAddress);
  EXPECT_EQ(StateOf("l3-8"), InterfaceState::kNoVrf);
}

TEST_F(ForwardingTest, OnlyWhatPassesNeedsASocket) {
  AddInterface("r1", "l3-5", "192.168.5.1");
  EXPECT_TRUE(Make().vrfs().empty());
  AddLink(2, "vlan5", false);
  AddAddress(2, "192.168.5.1");
  EXPECT_EQ(Make().vrfs().size(), 1U);
}

TEST_F(ForwardingTest, OneAddressIsAnotherInEachRoutingDomain) {
  AddVrf(9, 7);
  AddLink(2, "vlan5");
  AddLink(3, "vlan6", true, 9);
  AddAddress(2, "192.168.5.1");
  AddAddress(3, "192.168.5.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  AddInterface("r2", "l3-6", "192.168.5.1");
  table_.Apply(tests::VrfCall("r2", kVrf7));
  const Forwarding forwarding = Make();
  EXPECT_EQ(forwarding.FindByAddress(kDefaultVrf, Ip("192.168.5.1"))->link, 2);
  EXPECT_EQ(forwarding.FindByAddress(9, Ip("192.168.5.1"))->link, 3);
  EXPECT_EQ(forwarding.instances().at(1).vrf_device, "vrf7");
  EXPECT_EQ(forwarding.vrfs(), (std::map<int, std::string>{{0, ""}, {9, "vrf7"}}));
}

TEST_F(ForwardingTest, OwnAddressesAreThoseOfTheRoutingDomain) {
  AddVrf(9, 7);
  AddLink(2, "vlan5");
  AddLink(3, "vlan6", true, 9);
  AddAddress(2, "192.168.5.1");
  AddAddress(3, "192.168.6.1");
  AddAddress(9, "10.7.7.7");
  const Forwarding forwarding = Make();
  const auto has = [&](int vrf, const std::string& address) {
    return forwarding.OwnAddresses(vrf).contains(Ip(address).host_order());
  };
  EXPECT_TRUE(has(kDefaultVrf, "192.168.5.1"));
  EXPECT_FALSE(has(kDefaultVrf, "192.168.6.1"));
  EXPECT_TRUE(has(9, "192.168.6.1"));
  EXPECT_TRUE(has(9, "10.7.7.7"));
  EXPECT_FALSE(has(8, "10.7.7.7"));
}

TEST_F(ForwardingTest, OverrideReplacesWhatItSetsAlone) {
  AddLink(2, "vlan5");
  AddAddress(2, "192.168.5.1");
  AddAddress(2, "192.168.6.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  AddInterface("r1", "l3-6", "192.168.6.1");
  table_.Apply(tests::FlagCall(wire::SET_OPTION, "r1", true));
  table_.Apply(tests::FlagCall(wire::SET_CHECK, "r1", true));
  table_.Apply(tests::PolicyCall(wire::SET_POLICY, "r1", 0));
  table_.Apply(tests::FlagCall(wire::SET_IF_OPTION_CHECK, "r1", false, "l3-5"));
  table_.Apply(tests::FlagCall(wire::SET_IF_OPTION_TRUSTED, "r1", true, "l3-5"));
  const Forwarding forwarding = Make();
  const auto& overridden = forwarding.interfaces().at(0).relay;
  EXPECT_FALSE(overridden.check);
  EXPECT_TRUE(overridden.trusted);
  EXPECT_TRUE(overridden.option);
  EXPECT_EQ(overridden.policy, dhcp_relay::wire::Policy::kDrop);
  const auto& plain = forwarding.interfaces().at(1).relay;
  EXPECT_TRUE(plain.check);
  EXPECT_FALSE(plain.trusted);
}

TEST_F(ForwardingTest, OverrideOfThePolicyWins) {
  AddLink(2, "vlan5");
  AddAddress(2, "192.168.5.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  table_.Apply(tests::PolicyCall(wire::SET_POLICY, "r1", 0));
  table_.Apply(tests::PolicyCall(wire::SET_IF_OPTION_POLICY, "r1", 2, "l3-5"));
  EXPECT_EQ(Make().interfaces().at(0).relay.policy, dhcp_relay::wire::Policy::kReplace);
}

TEST_F(ForwardingTest, OverrideOfTheOptionWins) {
  AddLink(2, "vlan5");
  for (const int number : {5, 6, 7}) {
    const std::string address = "192.168." + std::to_string(number) + ".1";
    AddAddress(2, address);
    AddInterface("r1", "l3-" + std::to_string(number), address);
  }
  for (const bool instance : {false, true}) {
    table_.Apply(tests::FlagCall(wire::SET_OPTION, "r1", instance));
    table_.Apply(tests::FlagCall(wire::SET_IF_OPTION_OPTION, "r1", true, "l3-5"));
    table_.Apply(tests::FlagCall(wire::SET_IF_OPTION_OPTION, "r1", false, "l3-6"));
    const Forwarding forwarding = Make();
    const auto option = [&](std::size_t at) { return forwarding.interfaces().at(at).relay.option; };
    EXPECT_TRUE(option(0));
    EXPECT_FALSE(option(1));
    EXPECT_EQ(option(2), instance);
  }
}

TEST_F(ForwardingTest, WhatWasNeverSetIsOffAndKeep) {
  AddLink(2, "vlan5");
  AddAddress(2, "192.168.5.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  const Forwarding forwarding = Make();
  const auto& relay = forwarding.interfaces().at(0).relay;
  EXPECT_FALSE(relay.check || relay.trusted || relay.option);
  EXPECT_EQ(relay.policy, dhcp_relay::wire::Policy::kKeep);
}

TEST_F(ForwardingTest, LinkOfSeveralInterfacesTakesTheAddressedElseThePrimary) {
  AddLink(2, "vlan5");
  AddAddress(2, "192.168.6.1");
  AddAddress(2, "192.168.5.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  AddInterface("r1", "l3-6", "192.168.6.1");
  const Forwarding forwarding = Make();
  EXPECT_EQ(forwarding.FindByLink(2, Ip("255.255.255.255"))->name, "l3-6");
  EXPECT_EQ(forwarding.FindByLink(2, Ip("192.168.5.1"))->name, "l3-5");
  EXPECT_EQ(forwarding.FindByLink(2, Ip("192.168.5.9"))->name, "l3-6");
}

TEST_F(ForwardingTest, ForUsAreBroadcastsAndOwnAddresses) {
  AddLink(2, "vlan5");
  AddLink(3, "uplink");
  AddAddress(2, "192.168.5.1", "192.168.5.255");
  AddAddress(3, "10.0.0.254", "10.0.0.255");
  AddInterface("r1", "l3-5", "192.168.5.1");
  const Forwarding forwarding = Make();
  const RelayInterface& interface = forwarding.interfaces().at(0);
  for (const char* address : {"255.255.255.255", "192.168.5.255", "192.168.5.1", "10.0.0.254"}) {
    EXPECT_TRUE(forwarding.IsForUs(interface, Ip(address))) << address;
  }
  for (const char* address : {"10.0.0.1", "192.168.5.2", "10.0.0.255", "0.0.0.0"}) {
    EXPECT_FALSE(forwarding.IsForUs(interface, Ip(address))) << address;
  }
}

TEST_F(ForwardingTest, ADirectedBroadcastIsKnownByThePrefix) {
  AddLink(2, "vlan5");
  AddAddress(2, "192.168.5.1", "0.0.0.0", 24);
  AddAddress(2, "192.168.7.1", "192.168.7.127", 25);
  AddAddress(2, "192.168.8.0", "0.0.0.0", 31);
  AddInterface("r1", "l3-5", "192.168.5.1");
  AddInterface("r1", "l3-7", "192.168.7.1");
  AddInterface("r1", "l3-8", "192.168.8.0");
  const Forwarding forwarding = Make();
  const auto of = [&](const std::string& destination) {
    const RelayInterface* const interface = forwarding.FindByLink(2, Ip(destination));
    return forwarding.IsForUs(*interface, Ip(destination)) ? interface->name : "";
  };
  EXPECT_EQ(of("192.168.5.255"), "l3-5");
  EXPECT_EQ(of("192.168.7.127"), "l3-7");
  for (const char* address : {"192.168.7.255", "192.168.8.1", "0.0.0.0"}) {
    EXPECT_EQ(of(address), "") << address;
  }
}

TEST_F(ForwardingTest, OfTwoLinksWithTheAddressTheOneThatIsUpIsTaken) {
  AddLink(4, "vlan5", false);
  AddLink(7, "spare");
  AddLink(9, "other");
  for (const int link : {9, 4, 7}) AddAddress(link, "192.168.5.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  EXPECT_EQ(Make().interfaces().at(0).link, 7);
  AddLink(4, "vlan5");
  EXPECT_EQ(Make().interfaces().at(0).link, 4);
  EXPECT_EQ(Make().FindByLink(7, Ip("255.255.255.255")), nullptr);
  for (const int link : {9, 4, 7}) AddLink(link, "vlan" + std::to_string(link), false);
  EXPECT_EQ(Make().interfaces().at(0).link, 4);
}

TEST_F(ForwardingTest, AnAddressOfNoLinkIsPassedOver) {
  AddAddress(2, "192.168.5.1");
  AddInterface("r1", "l3-5", "192.168.5.1");
  EXPECT_EQ(StateOf("l3-5"), InterfaceState::kMissing);
}

TEST(CountersTest, SynchroniseDropsRemovedEntriesAndLeavesTheOthers) {
  RelayTable table;
  table.Apply(tests::Call(wire::ADD_L3_INTERFACE, "r1", "l3-5"));
  table.Apply(tests::Call(wire::ADD_L3_INTERFACE, "r1", "l3-6"));
  table.Apply(tests::AddressCall(wire::ADD_SERVER, "r1", 1));
  dhcp_manager::Counters counters;
  counters.Synchronise(table);
  auto& stays = counters.Interface("r1", "l3-5");
  stays.requests = 3;
  table.Apply(tests::Call(wire::DELETE_L3_INTERFACE, "r1", "l3-6"));
  table.Apply(tests::AddressCall(wire::DELETE_SERVER, "r1", 1));
  counters.Synchronise(table);
  EXPECT_EQ(&counters.Interface("r1", "l3-5"), &stays);
  EXPECT_EQ(stays.requests, 3U);
  EXPECT_THROW(counters.Interface("r1", "l3-6"), std::out_of_range);
  EXPECT_TRUE(counters.instances().at("r1").servers.empty());
  counters.Clear();
  EXPECT_EQ(stays.requests, 0U);
  table.Apply(tests::Call(wire::DELETE_INSTANCE, "r1"));
  counters.Synchronise(table);
  EXPECT_TRUE(counters.instances().empty());
}

}  // namespace
