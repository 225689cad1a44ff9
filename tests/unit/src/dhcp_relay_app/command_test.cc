#include "src/dhcp_relay_app/command.h"

#include <cstddef>
#include <type_traits>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

static_assert(std::has_virtual_destructor_v<Command>);
static_assert(std::is_base_of_v<Command, DhcpRelayIntfCmd>);
static_assert(std::is_base_of_v<Command, DhcpDumpRequest>);
static_assert(std::is_base_of_v<Command, DhcpDumpCancel>);

// No data of their own: nothing but the pointer to the table of operations.
static_assert(sizeof(Command) == sizeof(void*));
static_assert(sizeof(DhcpDumpRequest) == sizeof(Command));
static_assert(sizeof(DhcpDumpCancel) == sizeof(Command));

template <typename Kind>
bool Is(const Command& command) {
  return dynamic_cast<const Kind*>(&command) != nullptr;
}

TEST(CommandTest, KindsAreToldApartByTheirDynamicType) {
  const DhcpRelayIntfCmd intf_cmd(DhcpRelayIntf("r1"), false);
  const DhcpDumpRequest request;
  const DhcpDumpCancel cancel;
  EXPECT_TRUE(Is<DhcpRelayIntfCmd>(intf_cmd));
  EXPECT_FALSE(Is<DhcpDumpRequest>(intf_cmd));
  EXPECT_FALSE(Is<DhcpDumpCancel>(intf_cmd));
  EXPECT_TRUE(Is<DhcpDumpRequest>(request));
  EXPECT_FALSE(Is<DhcpDumpCancel>(request));
  EXPECT_FALSE(Is<DhcpRelayIntfCmd>(request));
  EXPECT_TRUE(Is<DhcpDumpCancel>(cancel));
  EXPECT_FALSE(Is<DhcpDumpRequest>(cancel));
  EXPECT_FALSE(Is<DhcpRelayIntfCmd>(cancel));
}

TEST(CommandTest, RecordCommandSaysWhetherItDeletes) {
  EXPECT_TRUE(DhcpRelayIntfCmd(DhcpRelayIntf("r1"), true).is_delete);
  EXPECT_FALSE(DhcpRelayIntfCmd(DhcpRelayIntf("r1"), false).is_delete);
}

TEST(CommandTest, RecordCommandCopiesEveryMemberOfTheRecord) {
  const DhcpRelayIntf record = FullRecord("r1");
  EXPECT_EQ(DhcpRelayIntfCmd(record, true).intf, record);
}

TEST(CommandTest, RecordCommandKeepsItsCopyWhenTheOriginalChanges) {
  DhcpRelayIntf record("r1");
  const DhcpRelayIntfCmd command(record, false);
  record.AddServerAddr(Ip("10.0.0.1"));
  record.GetOrAddL3Intf("l3-5");
  EXPECT_EQ(command.intf, DhcpRelayIntf("r1"));
}

TEST(CommandTest, RecordStandsBeforeTheDeleteFlag) {
  const DhcpRelayIntfCmd command(DhcpRelayIntf("r1"), false);
  const auto* const begin = reinterpret_cast<const std::byte*>(&command);
  const auto* const intf = reinterpret_cast<const std::byte*>(&command.intf);
  const auto* const is_delete = reinterpret_cast<const std::byte*>(&command.is_delete);
  EXPECT_EQ(static_cast<std::size_t>(intf - begin), sizeof(Command));
  EXPECT_EQ(static_cast<std::size_t>(is_delete - intf), sizeof(DhcpRelayIntf));
}

}  // namespace
}  // namespace dhcp_relay_app
