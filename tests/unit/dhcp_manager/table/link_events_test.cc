// What an event of the kernel's links costs does not depend on their number. Work is counted, not
// timed: the interfaces that are brought up to date, and allocations.

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "bench/allocation_count.h"
#include "dhcp_manager/kernel/link_feed.h"
#include "dhcp_manager/table/forwarding.h"
#include "dhcp_manager/table/relay_table.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/kernel/scripted_kernel.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::Forwarding;
using dhcp_manager::LinkAddress;
using dhcp_manager::Links;

constexpr int kFew = 100;
constexpr int kMany = 4094;
constexpr int kFlapping = 50;

struct Work {
  std::size_t interfaces = 0;
  std::size_t allocations = 0;
  bool vrfs = false;

  bool operator==(const Work&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Work& work) {
  return out << work.interfaces << " interfaces, " << work.allocations << " allocations"
             << (work.vrfs ? ", VRFs" : "");
}

LinkAddress AddressOf(int link) {
  return {.link = link,
          .address = nettypes::IPv4Addr::from_host_order(0xAC100001U |
                                                         static_cast<std::uint32_t>(link) << 8U),
          .broadcast = {},
          .prefix_length = 24};
}

// A device with `count` links that the relay serves.
class Device {
 public:
  explicit Device(int count) {
    dhcp_manager::RelayTable table;
    for (int link = 1; link <= count; ++link) {
      SetLink(link, true);
      kernel_.AddAddress(AddressOf(link));
      table.Apply(tests::AddressCall(wire::SET_L3_INTERFACE_ADDRESS, "r1",
                                     AddressOf(link).address.host_order(),
                                     "l3-" + std::to_string(link)));
    }
    feed_.Restart();
    while (!feed_.live()) feed_.TakePortion(links_);
    links_.TakeChanges();
    forwarding_ = Forwarding(table, links_);
  }

  tests::ScriptedKernel& kernel() { return kernel_; }
  void SetLink(int index, bool up) {
    kernel_.SetLink({.index = index, .name = "vlan", .up = up, .vrf_table = std::nullopt});
  }

  // What it costs to take what the kernel has told.
  Work Follow() {
    const std::size_t before = bench::AllocationCount();
    feed_.TakePortion(links_);
    const Forwarding::Updated updated = forwarding_.Update(links_, links_.TakeChanges());
    return {.interfaces = updated.interfaces,
            .allocations = bench::AllocationCount() - before,
            .vrfs = updated.vrfs};
  }

 private:
  tests::ScriptedKernel kernel_;
  dhcp_manager::LinkFeed feed_{std::make_unique<tests::ScriptedLinkSocket>(kernel_), {}};
  Links links_;
  Forwarding forwarding_;
};

using Event = std::function<void(Device&)>;

std::vector<Event> Events() {
  return {
      [](Device& device) { device.SetLink(kFlapping, false); },
      [](Device& device) { device.SetLink(kFlapping, true); },
      [](Device& device) { device.kernel().RemoveAddress(kFlapping, 0, false); },
      [](Device& device) { device.kernel().AddAddress(AddressOf(kFlapping)); },
      [](Device& device) { device.kernel().RemoveLink(kFlapping); },
      [](Device& device) {
        device.SetLink(kFlapping, true);
        device.kernel().AddAddress(AddressOf(kFlapping));
      },
  };
}

std::vector<Work> WorkOfEvents(int links) {
  Device device(links);
  std::vector<Work> works;
  for (const Event& event : Events()) {
    event(device);
    works.push_back(device.Follow());
  }
  return works;
}

TEST(LinkEventsTest, TheWorkOfAnEventDoesNotGrowWithTheNumberOfLinks) {
  const std::vector<Work> works = WorkOfEvents(kFew);
  EXPECT_EQ(works, WorkOfEvents(kMany));
  for (const Work& work : works) EXPECT_EQ(work.interfaces, 1U);
}

TEST(LinkEventsTest, WhatIsToldWithoutAChangeIsNoWork) {
  Device device(kFew);
  device.SetLink(kFlapping, true);
  EXPECT_EQ(device.Follow().interfaces, 0U);
}

// Each link of a trunk once, however many there are: no event makes work for the others.
TEST(LinkEventsTest, ATrunkThatFlapsIsOneUpdateForEachEvent) {
  Device device(kMany);
  std::size_t interfaces = 0;
  for (const bool up : {false, true}) {
    for (int link = 1; link <= kMany; ++link) {
      device.SetLink(link, up);
      interfaces += device.Follow().interfaces;
    }
  }
  EXPECT_EQ(interfaces, std::size_t{2} * kMany);
}

}  // namespace
