// Links made of netlink objects, as libnl holds them after the kernel's messages.

#include "dhcp_manager/kernel/netlink_links.h"

#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <netlink/cache.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/link/vrf.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using dhcp_manager::Link;
using dhcp_manager::LinkAddress;
using dhcp_manager::Links;
using dhcp_manager::VrfDevices;

struct NetlinkDeleter {
  void operator()(nl_cache* cache) const { nl_cache_free(cache); }
  void operator()(rtnl_link* link) const { rtnl_link_put(link); }
  void operator()(rtnl_addr* address) const { rtnl_addr_put(address); }
  void operator()(nl_addr* address) const { nl_addr_put(address); }
};
template <typename Object>
using Netlink = std::unique_ptr<Object, NetlinkDeleter>;

Netlink<nl_cache> MakeCache(const char* kind) {
  nl_cache* cache = nullptr;
  if (nl_cache_alloc_name(kind, &cache) != 0) throw std::runtime_error(kind);
  return Netlink<nl_cache>(cache);
}

Netlink<nl_addr> Address(const std::string& text, int family) {
  nl_addr* address = nullptr;
  if (nl_addr_parse(text.c_str(), family, &address) != 0) throw std::runtime_error(text);
  return Netlink<nl_addr>(address);
}

nettypes::IPv4Addr Ip(const std::string& text) { return *nettypes::IPv4Addr::parse(text); }

class NetlinkLinksTest : public ::testing::Test {
 protected:
  // A link that is up; more is set by the test before Add.
  static Netlink<rtnl_link> MakeLink(int index, const std::string& name) {
    Netlink<rtnl_link> link(rtnl_link_alloc());
    rtnl_link_set_ifindex(link.get(), index);
    rtnl_link_set_name(link.get(), name.c_str());
    rtnl_link_set_flags(link.get(), IFF_UP);
    rtnl_link_set_operstate(link.get(), IF_OPER_UP);
    return link;
  }
  void Add(const Netlink<rtnl_link>& link) {
    ASSERT_EQ(nl_cache_add(links_.get(), reinterpret_cast<nl_object*>(link.get())), 0);
  }
  void AddLink(int index, const std::string& name) { Add(MakeLink(index, name)); }
  void AddAddress(int link, const std::string& local, const std::string& broadcast = {},
                  int family = AF_INET, unsigned flags = 0) {
    const Netlink<rtnl_addr> address(rtnl_addr_alloc());
    rtnl_addr_set_ifindex(address.get(), link);
    rtnl_addr_set_family(address.get(), family);
    rtnl_addr_set_local(address.get(), Address(local, family).get());
    rtnl_addr_set_flags(address.get(), flags);
    if (!broadcast.empty()) {
      rtnl_addr_set_broadcast(address.get(), Address(broadcast, family).get());
    }
    ASSERT_EQ(nl_cache_add(addresses_.get(), reinterpret_cast<nl_object*>(address.get())), 0);
  }
  Links Read(const VrfDevices& vrf_devices = {}) {
    return dhcp_manager::ReadLinks(links_.get(), addresses_.get(), vrf_devices);
  }

  Netlink<nl_cache> links_ = MakeCache("route/link");
  Netlink<nl_cache> addresses_ = MakeCache("route/addr");
};

TEST_F(NetlinkLinksTest, WithoutObjectsThereAreNone) { EXPECT_EQ(Read(), Links()); }

TEST_F(NetlinkLinksTest, ALinkHasIndexNameMacAndMaster) {
  auto link = MakeLink(5, "vlan5");
  rtnl_link_set_addr(link.get(), Address("02:00:00:00:00:05", AF_LLC).get());
  rtnl_link_set_master(link.get(), 9);
  Add(link);
  const Links links = Read();
  ASSERT_EQ(links.links.size(), 1U);
  EXPECT_EQ(links.links.at(5), (Link{.index = 5,
                                     .name = "vlan5",
                                     .up = true,
                                     .mac = {2, 0, 0, 0, 0, 5},
                                     .master = 9,
                                     .vrf_table = std::nullopt}));
}

TEST_F(NetlinkLinksTest, AnAddressThatIsNoEthernetsIsNoMac) {
  auto link = MakeLink(5, "ib0");
  const std::array<std::uint8_t, 8> eight_bytes{2, 0, 0, 0, 0, 5, 6, 7};
  const Netlink<nl_addr> address(nl_addr_build(AF_LLC, eight_bytes.data(), eight_bytes.size()));
  rtnl_link_set_addr(link.get(), address.get());
  Add(link);
  EXPECT_EQ(Read().links.at(5).mac, base::MacAddress{});
}

TEST_F(NetlinkLinksTest, ALinkIsUpWithFlagAndCarrier) {
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
    ++index;
    auto link = MakeLink(index, "a" + std::to_string(index));
    rtnl_link_unset_flags(link.get(), IFF_UP);
    rtnl_link_set_flags(link.get(), item.flags);
    rtnl_link_set_operstate(link.get(), item.state);
    Add(link);
    EXPECT_EQ(Read().links.at(index).up, item.up) << index;
  }
}

TEST_F(NetlinkLinksTest, AVrfDeviceHasItsTable) {
  const Netlink<rtnl_link> vrf(rtnl_link_vrf_alloc());
  rtnl_link_set_ifindex(vrf.get(), 9);
  rtnl_link_set_name(vrf.get(), "red");
  rtnl_link_vrf_set_tableid(vrf.get(), 7);
  Add(vrf);
  EXPECT_EQ(Read().links.at(9).vrf_table, 7U);
}

TEST_F(NetlinkLinksTest, ADeviceCanStandForAVrf) {
  AddLink(9, "blue");
  AddLink(10, "green");
  const Links links = Read({{8, "blue"}});
  EXPECT_EQ(links.links.at(9).vrf_table, 8U);
  EXPECT_EQ(links.links.at(10).vrf_table, std::nullopt);
}

TEST_F(NetlinkLinksTest, ABridgesPortIsTheObjectOfNoFamily) {
  for (const bool bridge_first : {true, false}) {
    links_ = MakeCache("route/link");
    auto bridge_port = MakeLink(5, "port");
    rtnl_link_set_family(bridge_port.get(), AF_BRIDGE);
    auto port = MakeLink(5, "port");
    rtnl_link_set_master(port.get(), 4);
    Add(bridge_first ? bridge_port : port);
    Add(bridge_first ? port : bridge_port);
    EXPECT_EQ(Read().links.at(5).master, 4) << bridge_first;
  }
}

TEST_F(NetlinkLinksTest, ABridgeIsKnownByItsFamilyAlone) {
  auto bridge = MakeLink(4, "br0");
  rtnl_link_set_family(bridge.get(), AF_BRIDGE);
  Add(bridge);
  EXPECT_EQ(Read().links.at(4).name, "br0");
}

TEST_F(NetlinkLinksTest, AddressesKeepTheKernelsOrder) {
  AddAddress(5, "192.168.9.1", "192.168.9.255");
  AddAddress(5, "192.168.5.1");
  const Links links = Read();
  ASSERT_EQ(links.addresses.size(), 2U);
  EXPECT_EQ(
      links.addresses[0],
      (LinkAddress{.link = 5, .address = Ip("192.168.9.1"), .broadcast = Ip("192.168.9.255")}));
  EXPECT_EQ(links.addresses[1],
            (LinkAddress{.link = 5, .address = Ip("192.168.5.1"), .broadcast = {}}));
}

TEST_F(NetlinkLinksTest, AnAddressHasItsPrefixAndWhetherItIsSecondary) {
  AddAddress(5, "192.168.5.1/24");
  AddAddress(5, "192.168.5.2/24", {}, AF_INET, IFA_F_SECONDARY);
  AddAddress(5, "192.168.6.1/30", {}, AF_INET, IFA_F_PERMANENT);
  const Links links = Read();
  ASSERT_EQ(links.addresses.size(), 3U);
  EXPECT_EQ(
      links.addresses[0],
      (LinkAddress{.link = 5, .address = Ip("192.168.5.1"), .broadcast = {}, .prefix_length = 24}));
  EXPECT_EQ(links.addresses[1], (LinkAddress{.link = 5,
                                             .address = Ip("192.168.5.2"),
                                             .broadcast = {},
                                             .prefix_length = 24,
                                             .secondary = true}));
  EXPECT_EQ(links.addresses[2].prefix_length, 30U);
  EXPECT_FALSE(links.addresses[2].secondary);
}

TEST_F(NetlinkLinksTest, OtherFamiliesAreLeftOut) {
  AddAddress(5, "2001:db8::1", {}, AF_INET6);
  EXPECT_TRUE(Read().addresses.empty());
}

}  // namespace
