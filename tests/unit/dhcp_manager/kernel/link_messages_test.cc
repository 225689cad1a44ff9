// What messages of rtnetlink tell of links and addresses.

#include "dhcp_manager/kernel/link_messages.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

#include "tests/unit/dhcp_manager/kernel/netlink_messages.h"

namespace {

using dhcp_manager::Link;
using dhcp_manager::LinkAddress;
using dhcp_manager::Links;
using dhcp_manager::VrfDevices;
using tests::AddressMessage;
using tests::Ip;
using tests::LinkGone;
using tests::LinkMessage;
using tests::Message;

Link MakeLink(int index, const std::string& name) {
  return {.index = index, .name = name, .up = true, .vrf_table = std::nullopt};
}

LinkAddress MakeAddress(const std::string& address, unsigned prefix_length = 24) {
  return {.link = 5,
          .address = Ip(address),
          .broadcast = {},
          .prefix_length = prefix_length,
          .peer = Ip(address)};
}

class LinkMessagesTest : public ::testing::Test {
 protected:
  void Apply(const Message& message, const VrfDevices& vrf_devices = {}) {
    const tests::Datagram bytes = message.Bytes();
    ApplyMessage(*reinterpret_cast<const nlmsghdr*>(bytes.data()), vrf_devices, links_);
  }
  Link Read(const Link& link, const VrfDevices& vrf_devices = {}) {
    Apply(LinkMessage(link), vrf_devices);
    return *links_.Find(link.index);
  }
  LinkAddress Read(const LinkAddress& address) {
    links_ = {};
    Apply(AddressMessage(address));
    return links_.AddressesOf(address.link).at(0);
  }

  Links links_;
};

TEST_F(LinkMessagesTest, ALinkHasIndexNameMacAndMaster) {
  Link link = MakeLink(5, "vlan5");
  link.mac = {2, 0, 0, 0, 0, 5};
  link.master = 9;
  EXPECT_EQ(Read(link), link);
}

TEST_F(LinkMessagesTest, AnAddressThatIsNoEthernetsIsNoMac) {
  ifinfomsg header{};
  header.ifi_index = 5;
  const std::array<std::uint8_t, 8> eight_bytes{2, 0, 0, 0, 0, 5, 6, 7};
  Apply(Message(RTM_NEWLINK, header).Put(IFLA_ADDRESS, eight_bytes));
  EXPECT_EQ(links_.Find(5)->mac, base::MacAddress{});
  Apply(Message(RTM_NEWLINK, header));
  EXPECT_EQ(links_.Find(5)->mac, base::MacAddress{});
}

TEST_F(LinkMessagesTest, ALinkIsUpWithFlagAndCarrier) {
  struct Case {
    unsigned flags;
    std::uint8_t state;
    bool up;
  };
  int index = 0;
  for (const Case& item :
       {Case{IFF_UP, IF_OPER_UP, true}, Case{IFF_UP, IF_OPER_UNKNOWN, true},
        Case{IFF_UP, IF_OPER_DOWN, false}, Case{IFF_UP, IF_OPER_LOWERLAYERDOWN, false},
        Case{0, IF_OPER_UP, false}}) {
    ifinfomsg header{};
    header.ifi_index = ++index;
    header.ifi_flags = item.flags;
    Apply(Message(RTM_NEWLINK, header).Put(IFLA_OPERSTATE, item.state));
    EXPECT_EQ(links_.Find(index)->up, item.up) << index;
  }
}

TEST_F(LinkMessagesTest, AVrfDeviceHasItsTable) {
  Link vrf = MakeLink(9, "red");
  vrf.vrf_table = 7;
  EXPECT_EQ(Read(vrf), vrf);
}

TEST_F(LinkMessagesTest, ADeviceCanStandForAVrf) {
  EXPECT_EQ(Read(MakeLink(9, "blue"), {{8, "blue"}}).vrf_table, 8U);
  EXPECT_EQ(Read(MakeLink(10, "green"), {{8, "blue"}}).vrf_table, std::nullopt);
}

TEST_F(LinkMessagesTest, WhatIsToldOfABridgesPortIsNotOfTheLink) {
  Apply(LinkMessage(MakeLink(5, "port")));
  ifinfomsg header{};
  header.ifi_family = AF_BRIDGE;
  header.ifi_index = 5;
  Apply(Message(RTM_NEWLINK, header).Put(IFLA_IFNAME, std::string("other")));
  Apply(LinkGone(5, AF_BRIDGE));
  ASSERT_NE(links_.Find(5), nullptr);
  EXPECT_EQ(links_.Find(5)->name, "port");
}

TEST_F(LinkMessagesTest, ALinkGoesWithItsAddresses) {
  Apply(LinkMessage(MakeLink(5, "vlan5")));
  Apply(AddressMessage(MakeAddress("192.168.5.1")));
  Apply(LinkGone(5));
  EXPECT_EQ(links_, Links());
}

TEST_F(LinkMessagesTest, AnAddressHasItsBroadcastPrefixScopeAndPeer) {
  LinkAddress address = MakeAddress("192.168.5.1", 30);
  EXPECT_EQ(Read(address), address);
  address.broadcast = Ip("192.168.5.3");
  address.scope = RT_SCOPE_LINK;
  address.peer = Ip("192.168.5.2");
  EXPECT_EQ(Read(address), address);
}

TEST_F(LinkMessagesTest, AnAddressTellsWhetherItIsSecondary) {
  LinkAddress address = MakeAddress("192.168.5.2");
  address.secondary = true;
  EXPECT_TRUE(Read(address).secondary);
  address.secondary = false;
  EXPECT_FALSE(Read(address).secondary);
}

TEST_F(LinkMessagesTest, AnAddressWithoutALocalOneIsItsOwn) {
  ifaddrmsg header{};
  header.ifa_family = AF_INET;
  header.ifa_index = 5;
  Apply(Message(RTM_NEWADDR, header).Put(IFA_ADDRESS, Ip("192.168.5.1")));
  EXPECT_EQ(links_.AddressesOf(5).at(0).address, Ip("192.168.5.1"));
}

TEST_F(LinkMessagesTest, AnAddressThatIsRemovedIsGone) {
  Apply(AddressMessage(MakeAddress("192.168.5.1")));
  Apply(AddressMessage(MakeAddress("192.168.5.2")));
  Apply(AddressMessage(MakeAddress("192.168.5.1"), RTM_DELADDR));
  ASSERT_EQ(links_.AddressesOf(5).size(), 1U);
  EXPECT_EQ(links_.AddressesOf(5)[0].address, Ip("192.168.5.2"));
}

TEST_F(LinkMessagesTest, AddressesOfIPv6AndOtherMessagesArePassedOver) {
  ifaddrmsg header{};
  header.ifa_family = AF_INET6;
  Apply(Message(RTM_NEWADDR, header));
  Apply(Message(RTM_NEWROUTE, rtmsg{}));
  EXPECT_EQ(links_, Links());
}

TEST_F(LinkMessagesTest, AMessageThatIsTooShortIsAnError) {
  for (const int type : {RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR}) {
    EXPECT_THROW(Apply(Message(type, std::uint32_t{})), std::runtime_error) << type;
  }
}

}  // namespace
