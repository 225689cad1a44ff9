// The order of addresses, who has an address, VRFs, and what a change touches.

#include "dhcp_manager/kernel/links.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "tests/unit/dhcp_manager/kernel/netlink_messages.h"

namespace {

using dhcp_manager::kDefaultVrf;
using dhcp_manager::Link;
using dhcp_manager::LinkAddress;
using dhcp_manager::Links;
using dhcp_manager::VrfAddress;
using tests::Ip;
using Names = std::vector<std::string>;

LinkAddress MakeAddress(int link, const std::string& address, bool secondary = false) {
  return {.link = link,
          .address = Ip(address),
          .broadcast = {},
          .prefix_length = 24,
          .secondary = secondary};
}

class LinksTest : public ::testing::Test {
 protected:
  void AddLink(int index, bool up = true, int master = 0) {
    links_.SetLink({.index = index,
                    .name = "a" + std::to_string(index),
                    .up = up,
                    .master = master,
                    .vrf_table = std::nullopt});
  }
  void AddVrf(int index, std::uint32_t table) {
    links_.SetLink({.index = index, .name = "red", .vrf_table = table});
  }
  void Add(int link, const std::string& address, bool secondary = false) {
    links_.SetAddress(MakeAddress(link, address, secondary));
  }
  Names Addresses(int link = 1) const {
    Names names;
    for (const LinkAddress& entry : links_.AddressesOf(link)) {
      names.push_back(entry.address.to_string());
    }
    return names;
  }
  // 0 for nobody.
  int Owner(const std::string& address, int vrf = kDefaultVrf) const {
    const LinkAddress* const owner = links_.FindOwner({.vrf = vrf, .address = Ip(address)});
    return owner == nullptr ? 0 : owner->link;
  }

  Links links_;
};

TEST_F(LinksTest, AnAddressThatIsReportedAnewKeepsItsPlace) {
  Add(1, "192.168.5.1");
  Add(1, "192.168.55.1");
  links_.TakeChanges();
  Add(1, "192.168.5.1");
  EXPECT_TRUE(links_.TakeChanges().empty());
  LinkAddress changed = MakeAddress(1, "192.168.5.1");
  changed.broadcast = Ip("192.168.5.255");
  links_.SetAddress(changed);
  EXPECT_FALSE(links_.TakeChanges().empty());
  EXPECT_EQ(Addresses(), (Names{"192.168.5.1", "192.168.55.1"}));
  EXPECT_EQ(links_.AddressesOf(1)[0], changed);
}

TEST_F(LinksTest, AnAddressThatWasRemovedHasLostItsPlace) {
  Add(1, "192.168.5.1");
  Add(1, "192.168.55.1");
  links_.RemoveAddress(MakeAddress(1, "192.168.5.1"));
  Add(1, "192.168.5.1");
  EXPECT_EQ(Addresses(), (Names{"192.168.55.1", "192.168.5.1"}));
}

TEST_F(LinksTest, SecondaryAddressesAreBehindAllOthers) {
  Add(1, "192.168.5.1");
  Add(1, "192.168.5.2", true);
  Add(1, "192.168.55.1");
  Add(1, "192.168.55.2", true);
  EXPECT_EQ(Addresses(), (Names{"192.168.5.1", "192.168.55.1", "192.168.5.2", "192.168.55.2"}));
  // The primary one goes, and the kernel promotes the other.
  links_.RemoveAddress(MakeAddress(1, "192.168.5.1"));
  Add(1, "192.168.5.2");
  EXPECT_EQ(Addresses(), (Names{"192.168.55.1", "192.168.5.2", "192.168.55.2"}));
}

TEST_F(LinksTest, AnAddressOfTheLinkAloneIsBeforeTheOthers) {
  Add(1, "192.168.5.1");
  LinkAddress local = MakeAddress(1, "169.254.5.1");
  local.scope = RT_SCOPE_LINK;
  links_.SetAddress(local);
  EXPECT_EQ(Addresses(), (Names{"169.254.5.1", "192.168.5.1"}));
}

TEST_F(LinksTest, AddressesOfAnotherPrefixOrPeerAreOthers) {
  AddLink(1);
  LinkAddress address = MakeAddress(1, "192.168.5.1");
  links_.SetAddress(address);
  address.prefix_length = 25;
  links_.SetAddress(address);
  address.peer = Ip("192.168.5.9");
  links_.SetAddress(address);
  EXPECT_EQ(Addresses().size(), 3U);
  links_.RemoveAddress(MakeAddress(1, "192.168.5.1"));
  EXPECT_EQ(Addresses().size(), 2U);
  EXPECT_EQ(Owner("192.168.5.1"), 1);
  EXPECT_EQ(links_.FindOwner({.address = Ip("192.168.5.1")})->prefix_length, 25U);
}

TEST_F(LinksTest, TheOwnerIsUpElseHasTheLowestIndex) {
  AddLink(4, false);
  AddLink(7);
  AddLink(9);
  for (const int link : {9, 4, 7}) Add(link, "192.168.5.1");
  EXPECT_EQ(Owner("192.168.5.1"), 7);
  AddLink(4);
  EXPECT_EQ(Owner("192.168.5.1"), 4);
  for (const int link : {9, 4, 7}) AddLink(link, false);
  EXPECT_EQ(Owner("192.168.5.1"), 4);
  links_.RemoveLink(4);
  EXPECT_EQ(Owner("192.168.5.1"), 7);
  for (const int link : {7, 9}) links_.RemoveAddress(MakeAddress(link, "192.168.5.1"));
  EXPECT_EQ(Owner("192.168.5.1"), 0);
}

TEST_F(LinksTest, AnAddressWaitsForItsLink) {
  Add(1, "192.168.5.1");
  EXPECT_EQ(Owner("192.168.5.1"), 0);
  AddLink(1);
  EXPECT_EQ(Owner("192.168.5.1"), 1);
}

TEST_F(LinksTest, RoutingDomainIsTheVrfDeviceOrItsMaster) {
  AddVrf(5, 7);
  AddLink(6);
  AddLink(7, true, 5);
  AddLink(8, true, 6);
  AddLink(9, true, 99);
  const auto vrf_of = [this](int link) { return links_.VrfOf(*links_.Find(link)); };
  EXPECT_EQ(vrf_of(5), 5);
  EXPECT_EQ(vrf_of(7), 5);
  for (const int index : {6, 8, 9}) EXPECT_EQ(vrf_of(index), kDefaultVrf);
  EXPECT_EQ(links_.FindVrf(7), 5);
  EXPECT_EQ(links_.FindVrf(8), std::nullopt);
}

TEST_F(LinksTest, AddressesGoWithTheirLinkIntoAVrfAndOut) {
  AddLink(7, true, 5);
  Add(7, "192.168.5.1");
  EXPECT_EQ(Owner("192.168.5.1"), 7);
  AddVrf(5, 7);
  EXPECT_EQ(Owner("192.168.5.1"), 0);
  EXPECT_EQ(Owner("192.168.5.1", 5), 7);
  links_.RemoveLink(5);
  EXPECT_EQ(Owner("192.168.5.1"), 7);
  EXPECT_EQ(links_.FindVrf(7), std::nullopt);
  AddVrf(5, 8);
  AddLink(7);
  EXPECT_EQ(Owner("192.168.5.1"), 7);
}

TEST_F(LinksTest, OfTwoDevicesOfAVrfTheOneWithTheLowestIndexIsTaken) {
  AddVrf(5, 7);
  AddVrf(4, 7);
  EXPECT_EQ(links_.FindVrf(7), 4);
  links_.RemoveLink(4);
  EXPECT_EQ(links_.FindVrf(7), 5);
}

TEST_F(LinksTest, AChangeTouchesTheLinkAndItsAddresses) {
  for (const int link : {1, 2, 3}) {
    AddLink(link);
    Add(link, "192.168." + std::to_string(link) + ".1");
  }
  links_.TakeChanges();
  AddLink(2, false);
  const auto changes = links_.TakeChanges();
  EXPECT_EQ(changes.links, std::unordered_set<int>{2});
  ASSERT_EQ(changes.addresses.size(), 1U);
  EXPECT_EQ(*changes.addresses.begin(), (VrfAddress{.address = Ip("192.168.2.1")}));
  EXPECT_FALSE(changes.vrfs);
  EXPECT_TRUE(links_.TakeChanges().empty());
}

TEST_F(LinksTest, OnlyWhatMakesAVrfIsAChangeOfVrfs) {
  const auto changes_vrfs = [this](const Link& link) {
    links_.SetLink(link);
    return links_.TakeChanges().vrfs;
  };
  Link vrf{.index = 5, .name = "red", .vrf_table = 7};
  EXPECT_TRUE(changes_vrfs(vrf));
  vrf.up = true;
  EXPECT_FALSE(changes_vrfs(vrf));
  vrf.name = "scarlet";
  EXPECT_TRUE(changes_vrfs(vrf));
  vrf.vrf_table = 8;
  EXPECT_TRUE(changes_vrfs(vrf));
  links_.RemoveLink(5);
  EXPECT_TRUE(links_.TakeChanges().vrfs);
}

TEST_F(LinksTest, ReplacingTouchesWhatDiffers) {
  for (const int link : {1, 2, 3}) {
    AddLink(link);
    Add(link, "192.168." + std::to_string(link) + ".1");
  }
  Links fresh = links_;
  fresh.RemoveLink(1);
  fresh.RemoveAddress(MakeAddress(3, "192.168.3.1"));
  fresh.SetAddress(MakeAddress(3, "192.168.33.1"));
  fresh.SetAddress(MakeAddress(3, "192.168.3.1"));
  links_.TakeChanges();
  links_.ReplaceBy(fresh);
  EXPECT_EQ(links_, fresh);
  EXPECT_EQ(Addresses(3), (Names{"192.168.33.1", "192.168.3.1"}));
  EXPECT_EQ(Owner("192.168.1.1"), 0);
  EXPECT_EQ(links_.TakeChanges().links, (std::unordered_set<int>{1, 3}));
  links_.ReplaceBy(fresh);
  EXPECT_TRUE(links_.TakeChanges().empty());
}

}  // namespace
