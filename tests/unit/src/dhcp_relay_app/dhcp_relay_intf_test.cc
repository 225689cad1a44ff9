#include "src/dhcp_relay_app/dhcp_relay_intf.h"

#include <cstddef>
#include <type_traits>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(std::is_same_v<std::underlying_type_t<TriState>, std::int32_t>);
static_assert(static_cast<int>(TriState::kNo) == 0);
static_assert(static_cast<int>(TriState::kYes) == 1);
static_assert(static_cast<int>(TriState::kUndefined) == -1);

static_assert(std::is_same_v<std::underlying_type_t<DhcpRelayPolicy>, std::int32_t>);
static_assert(static_cast<int>(DhcpRelayPolicy::kDrop) == 0);
static_assert(static_cast<int>(DhcpRelayPolicy::kKeep) == 1);
static_assert(static_cast<int>(DhcpRelayPolicy::kReplace) == 2);
static_assert(static_cast<int>(DhcpRelayPolicy::kUndefined) == 3);

static_assert(!std::is_polymorphic_v<DhcpRelayIntf>);
static_assert(!std::is_polymorphic_v<DhcpRelayL3Intf>);
static_assert(!std::is_polymorphic_v<DhcpRelayIfOption>);

template <typename Entry>
std::vector<std::string> Names(const std::list<Entry>& entries) {
  std::vector<std::string> names;
  for (const Entry& entry : entries) names.push_back(entry.name());
  return names;
}

template <typename Record, typename Field>
std::ptrdiff_t Offset(const Record& record, const Field& field) {
  return reinterpret_cast<const std::byte*>(&field) - reinterpret_cast<const std::byte*>(&record);
}

template <typename Record>
void ExpectOptionsFirst() {
  const Record record("x");
  EXPECT_EQ(Offset(record, record.check), 0);
  EXPECT_EQ(Offset(record, record.option), 4);
  EXPECT_EQ(Offset(record, record.trusted), 8);
  EXPECT_EQ(Offset(record, record.policy), 12);
  EXPECT_EQ(Offset(record, record.name()), 16);
}

TEST(DhcpRelayIntfTest, FreshInstanceIsUndefinedAndEmpty) {
  const DhcpRelayIntf intf("r1");
  EXPECT_EQ(intf.name(), "r1");
  EXPECT_EQ(intf.check, TriState::kUndefined);
  EXPECT_EQ(intf.option, TriState::kUndefined);
  EXPECT_EQ(intf.trusted, TriState::kUndefined);
  EXPECT_EQ(intf.policy, DhcpRelayPolicy::kUndefined);
  EXPECT_FALSE(intf.should_delete());
  EXPECT_FALSE(intf.vrf_deleted());
  EXPECT_THAT(intf.added_server_addrs(), IsEmpty());
  EXPECT_THAT(intf.deleted_server_addrs(), IsEmpty());
  EXPECT_THAT(intf.l3_intfs(), IsEmpty());
  EXPECT_THAT(intf.if_options(), IsEmpty());
  EXPECT_EQ(intf.vrf_id(), 0U);
}

TEST(DhcpRelayIntfTest, FreshL3InterfaceHasNoVlanAndNoAddress) {
  const DhcpRelayL3Intf l3_intf("l3-5");
  EXPECT_EQ(l3_intf.name(), "l3-5");
  EXPECT_FALSE(l3_intf.should_delete());
  EXPECT_EQ(l3_intf.added_vlan_id(), 0);
  EXPECT_EQ(l3_intf.deleted_vlan_id(), 0);
  EXPECT_TRUE(l3_intf.ipv4_addr().is_unspecified());
}

TEST(DhcpRelayIntfTest, FreshIfOptionIsUndefined) {
  const DhcpRelayIfOption if_option("l3-5");
  EXPECT_EQ(if_option.name(), "l3-5");
  EXPECT_EQ(if_option.check, TriState::kUndefined);
  EXPECT_EQ(if_option.option, TriState::kUndefined);
  EXPECT_EQ(if_option.trusted, TriState::kUndefined);
  EXPECT_EQ(if_option.policy, DhcpRelayPolicy::kUndefined);
  EXPECT_FALSE(if_option.should_delete());
}

TEST(DhcpRelayIntfTest, OptionFieldsStandFirstAndInTheSameOrderInBothRecords) {
  ExpectOptionsFirst<DhcpRelayIntf>();
  ExpectOptionsFirst<DhcpRelayIfOption>();
}

TEST(DhcpRelayIntfTest, VlanIdsKeepTheLow16Bits) {
  DhcpRelayL3Intf l3_intf("l3-5");
  l3_intf.SetAddedVlanId(70000);
  l3_intf.SetDeletedVlanId(65536 + 9);
  EXPECT_EQ(l3_intf.added_vlan_id(), 4464);
  EXPECT_EQ(l3_intf.deleted_vlan_id(), 9);
  l3_intf.SetAddedVlanId(-1);
  EXPECT_EQ(l3_intf.added_vlan_id(), 65535);
}

TEST(DhcpRelayIntfTest, FlagsAreSetOneByOne) {
  DhcpRelayIntf intf("r1");
  intf.SetShouldDelete();
  EXPECT_TRUE(intf.should_delete());
  EXPECT_FALSE(intf.vrf_deleted());
  intf.SetVrfDeleted();
  EXPECT_TRUE(intf.vrf_deleted());
  DhcpRelayL3Intf& l3_intf = intf.GetOrAddL3Intf("l3-5");
  l3_intf.SetShouldDelete();
  EXPECT_TRUE(l3_intf.should_delete());
  DhcpRelayIfOption& if_option = intf.GetOrAddIfOption("l3-5");
  EXPECT_FALSE(if_option.should_delete());
  if_option.SetShouldDelete();
  EXPECT_TRUE(if_option.should_delete());
}

TEST(DhcpRelayIntfTest, VrfIdTakesAll32Bits) {
  DhcpRelayIntf intf("r1");
  intf.SetVrfId(0xFFFFFFFFU);
  EXPECT_EQ(intf.vrf_id(), 0xFFFFFFFFU);
}

TEST(DhcpRelayIntfTest, ServersKeepTheirOrderAndDuplicates) {
  DhcpRelayIntf intf("r1");
  intf.AddServerAddr(Ip("10.0.0.2"));
  intf.AddServerAddr(Ip("10.0.0.1"));
  intf.AddServerAddr(Ip("10.0.0.2"));
  intf.AddDeletedServerAddr(Ip("10.0.0.2"));
  intf.AddDeletedServerAddr(Ip("10.0.0.2"));
  EXPECT_THAT(intf.added_server_addrs(),
              ElementsAre(Ip("10.0.0.2"), Ip("10.0.0.1"), Ip("10.0.0.2")));
  EXPECT_THAT(intf.deleted_server_addrs(), ElementsAre(Ip("10.0.0.2"), Ip("10.0.0.2")));
}

TEST(DhcpRelayIntfTest, GetOrAddReturnsTheSameEntryForTheSameName) {
  DhcpRelayIntf intf("r1");
  DhcpRelayL3Intf& l3_intf = intf.GetOrAddL3Intf("l3-5");
  intf.GetOrAddL3Intf("l3-6");
  EXPECT_EQ(&intf.GetOrAddL3Intf("l3-5"), &l3_intf);
  EXPECT_THAT(Names(intf.l3_intfs()), ElementsAre("l3-5", "l3-6"));

  DhcpRelayIfOption& if_option = intf.GetOrAddIfOption("l3-5");
  intf.GetOrAddIfOption("l3-6");
  EXPECT_EQ(&intf.GetOrAddIfOption("l3-5"), &if_option);
  EXPECT_THAT(Names(intf.if_options()), ElementsAre("l3-5", "l3-6"));
}

TEST(DhcpRelayIntfTest, EntriesStandInOrderOfFirstMention) {
  DhcpRelayIntf intf("r1");
  for (const char* name : {"l3-9", "l3-1", "l3-5", "l3-1", "l3-9"}) {
    intf.GetOrAddL3Intf(name);
    intf.GetOrAddIfOption(name);
  }
  EXPECT_THAT(Names(intf.l3_intfs()), ElementsAre("l3-9", "l3-1", "l3-5"));
  EXPECT_THAT(Names(intf.if_options()), ElementsAre("l3-9", "l3-1", "l3-5"));
}

TEST(DhcpRelayIntfTest, NamesAreComparedByteForByte) {
  const std::string with_nul("l3-5\0a", 6);
  DhcpRelayIntf intf("r1");
  for (const std::string& name : {std::string("l3-a"), std::string("l3-A"), std::string("l3-"),
                                  std::string("l3-5"), with_nul}) {
    intf.GetOrAddL3Intf(name);
    intf.GetOrAddIfOption(name);
  }
  EXPECT_THAT(Names(intf.l3_intfs()), ElementsAre("l3-a", "l3-A", "l3-", "l3-5", with_nul));
  EXPECT_THAT(Names(intf.if_options()), ElementsAre("l3-a", "l3-A", "l3-", "l3-5", with_nul));
}

TEST(DhcpRelayIntfTest, InterfacesAndOverridesOfOneNameAreSeparateEntries) {
  DhcpRelayIntf intf("r1");
  intf.GetOrAddL3Intf("l3-5").SetShouldDelete();
  EXPECT_THAT(intf.if_options(), IsEmpty());
  EXPECT_FALSE(intf.GetOrAddIfOption("l3-5").should_delete());
}

TEST(DhcpRelayIntfTest, CopyConstructionCopiesEveryMemberInOrder) {
  const DhcpRelayIntf original = FullRecord("r1");
  DhcpRelayIntf copy(original);
  EXPECT_EQ(copy, original);
  EXPECT_EQ(copy.ToString(), original.ToString());
  copy.SetVrfId(99);
  EXPECT_EQ(original, FullRecord("r1"));
}

TEST(DhcpRelayIntfTest, CopyAssignmentCopiesEveryMemberInOrder) {
  const DhcpRelayIntf original = FullRecord("r1");
  DhcpRelayIntf copy("other");
  copy.GetOrAddL3Intf("l3-99");
  copy.AddServerAddr(Ip("10.9.9.9"));
  copy = original;
  EXPECT_EQ(copy, original);
  EXPECT_EQ(copy.ToString(), original.ToString());
}

TEST(DhcpRelayIntfTest, CopySharesNothingWithTheOriginal) {
  DhcpRelayIntf original = FullRecord("r1");
  const DhcpRelayIntf copy(original);
  original.GetOrAddL3Intf("l3-5").SetAddedVlanId(99);
  original.GetOrAddIfOption("l3-5").policy = DhcpRelayPolicy::kKeep;
  original.AddServerAddr(Ip("10.0.0.9"));
  EXPECT_EQ(copy, FullRecord("r1"));
}

}  // namespace
}  // namespace dhcp_relay_app
