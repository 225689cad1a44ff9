// Whatever happens to links and addresses, what follows the events equals what is made anew.

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "dhcp_manager/kernel/link_feed.h"
#include "dhcp_manager/table/forwarding.h"
#include "dhcp_manager/table/relay_table.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/kernel/scripted_kernel.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::Forwarding;
using dhcp_manager::Links;
using dhcp_manager::RelayInterface;
using tests::Ip;

constexpr int kVrfDevices = 2;  // their indexes begin with 1, their tables with 101
constexpr int kLinks = 9;       // with the VRF devices
constexpr int kSubnets = 4;
constexpr int kHosts = 4;

std::string AddressText(int subnet, int host) {
  return "192.168." + std::to_string(subnet) + "." + std::to_string(host);
}

// Two instances of the default VRF, and one of each other, with an interface for each address that
// the links may get.
dhcp_manager::RelayTable MakeTable() {
  dhcp_manager::RelayTable table;
  for (const int instance : {0, 1, 2, 3}) {
    const std::string name = "r" + std::to_string(instance);
    for (int subnet = 1; subnet <= kSubnets; ++subnet) {
      for (int host = 1; host <= kHosts; ++host) {
        const std::string address = AddressText(subnet, host);
        table.Apply(tests::AddressCall(wire::SET_L3_INTERFACE_ADDRESS, name,
                                       Ip(address).host_order(), "l3-" + address));
      }
    }
    if (instance >= 2) {
      table.Apply(tests::VrfCall(name, 0x01000000U | static_cast<std::uint32_t>(99 + instance)));
    }
  }
  return table;
}

// What packets and operators see of an interface.
std::string Shown(const RelayInterface& interface) {
  std::string text = interface.instance->name + ' ' + interface.name + ' ';
  text += std::string(Name(interface.state)) + ' ' + std::to_string(interface.link) + ' ' +
          interface.link_name + ' ' + interface.broadcast.to_string() + ' ' +
          interface.directed_broadcast.to_string() + ' ';
  for (const auto byte : interface.relay.relay_agent_information) text += std::to_string(byte);
  return text;
}

std::string Shown(const RelayInterface* interface) {
  return interface == nullptr ? "none" : Shown(*interface);
}

void ExpectSame(const Forwarding& forwarding, const Forwarding& fresh) {
  ASSERT_EQ(forwarding.interfaces().size(), fresh.interfaces().size());
  for (std::size_t i = 0; i < fresh.interfaces().size(); ++i) {
    EXPECT_EQ(Shown(forwarding.interfaces()[i]), Shown(fresh.interfaces()[i]));
  }
  EXPECT_EQ(forwarding.vrfs(), fresh.vrfs());
  for (int vrf = 0; vrf <= kVrfDevices; ++vrf) {
    EXPECT_EQ(forwarding.OwnAddresses(vrf), fresh.OwnAddresses(vrf)) << vrf;
  }
  for (int subnet = 1; subnet <= kSubnets; ++subnet) {
    for (const int host : {1, 2, kHosts, 255}) {
      const auto address = Ip(AddressText(subnet, host));
      for (int link = 0; link <= kLinks; ++link) {
        EXPECT_EQ(Shown(forwarding.FindByLink(link, address)),
                  Shown(fresh.FindByLink(link, address)));
      }
      for (int vrf = 0; vrf <= kVrfDevices; ++vrf) {
        EXPECT_EQ(Shown(forwarding.FindByAddress(vrf, address)),
                  Shown(fresh.FindByAddress(vrf, address)));
      }
    }
  }
}

class RandomLinksTest : public ::testing::TestWithParam<unsigned> {
 protected:
  RandomLinksTest() : random_(GetParam()) {
    kernel_.part_size = 3;
    for (int link = 1; link <= kLinks; ++link) SetLink(link);
    feed_.Restart();
    while (!feed_.live()) feed_.TakePortion(links_);
    links_.TakeChanges();
    forwarding_ = Forwarding(table_, links_);
  }

  int Random(int first, int last) {
    return std::uniform_int_distribution<int>(first, last)(random_);
  }
  bool Chance(int percent) { return Random(1, 100) <= percent; }

  void SetLink(int index) {
    const bool is_vrf = index <= kVrfDevices;
    kernel_.SetLink({.index = index,
                     .name = "a" + std::to_string(index) + (Chance(20) ? "x" : ""),
                     .up = Chance(70),
                     .mac = {2, 0, 0, 0, static_cast<std::uint8_t>(Random(0, 1)), 1},
                     .master = is_vrf || Chance(50) ? 0 : Random(1, kVrfDevices),
                     .vrf_table = is_vrf ? std::optional<std::uint32_t>(
                                               Chance(90) ? 100 + index : Random(101, 102))
                                         : std::nullopt});
  }
  void AddAddress(int link) {
    kernel_.AddAddress({.link = link,
                        .address = Ip(AddressText(Random(1, kSubnets), Random(1, kHosts))),
                        .broadcast = Chance(50) ? Ip("192.168.9.255") : nettypes::IPv4Addr(),
                        .prefix_length = Chance(80) ? 24U : 30U,
                        .scope = Chance(80) ? 0U : 253U});
  }
  void RemoveAddress(int link) {
    const auto count = static_cast<int>(kernel_.AddressesOf(link).size());
    if (count == 0) return;
    kernel_.RemoveAddress(link, static_cast<std::size_t>(Random(0, count - 1)), Chance(50));
  }
  void ChangeSomething() {
    const int link = Random(1, kLinks);
    if (!kernel_.links().contains(link)) return SetLink(link);
    const int what = Random(1, 100);
    if (what <= 30) return SetLink(link);
    if (what <= 70) return AddAddress(link);
    if (what <= 95) return RemoveAddress(link);
    kernel_.RemoveLink(link);
  }

  // Until nothing waits any more; some changes happen meanwhile.
  void Follow() {
    for (int turn = 0; turn == 0 || kernel_.HasWaiting() || !feed_.live(); ++turn) {
      try {
        feed_.TakePortion(links_);
        if (!feed_.live() && turn < 10 && Chance(10)) ChangeSomething();
      } catch (const std::runtime_error&) {
        ++losses_;
        feed_.Restart();
      }
      const Links::Changes changes = links_.TakeChanges();
      if (changes.vrfs) {
        forwarding_ = Forwarding(table_, links_);
      } else {
        forwarding_.Update(links_, changes);
      }
    }
  }
  void ExpectOrderOfTheKernel() {
    for (int link = 1; link <= kLinks; ++link) {
      EXPECT_EQ(links_.AddressesOf(link), kernel_.AddressesOf(link)) << link;
    }
  }

  std::mt19937 random_;
  const dhcp_manager::RelayTable table_ = MakeTable();
  tests::ScriptedKernel kernel_;
  dhcp_manager::LinkFeed feed_{std::make_unique<tests::ScriptedLinkSocket>(kernel_), {}};
  Links links_;
  Forwarding forwarding_;
  int losses_ = 0;
};

TEST_P(RandomLinksTest, WhatFollowsEqualsWhatIsReadAnew) {
  for (int round = 0; round < 60 && !HasFailure(); ++round) {
    for (int change = Random(1, 12); change > 0; --change) ChangeSomething();
    if (Chance(10)) kernel_.Overrun();
    Follow();
    const Links fresh = kernel_.Fresh();
    EXPECT_EQ(links_, fresh);
    ExpectOrderOfTheKernel();
    ExpectSame(forwarding_, Forwarding(table_, fresh));
  }
  EXPECT_GT(losses_, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomLinksTest, ::testing::Range(1U, 9U));

}  // namespace
