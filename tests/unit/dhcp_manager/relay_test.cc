// When a change of the relay table is put to use. No interface of the machine has an address of the
// table, so that no socket is opened.

#include "dhcp_manager/relay.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>

#include <vxmw/vxmw.h>

#include "dhcp_manager/kernel/link_socket.h"
#include "tests/support/calls.h"
#include "tests/support/loop.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::Relay;
using dhcp_manager::Resync;

class RelayTest : public ::testing::Test {
 protected:
  ~RelayTest() override {
    relay_.reset();
    vxmw_finish(&mw_);
  }

  void Dump() {
    const std::uint32_t dump = resync_.Connected();
    EXPECT_TRUE(resync_.BeginDump(dump));
    AddServer();
    EXPECT_EQ(relay_->version(), 0U);
    EXPECT_TRUE(resync_.CompleteDump(dump));
  }
  void AddServer() {
    resync_.Apply(tests::AddressCall(wire::ADD_SERVER, "r1", 0x0A000001 + servers_++));
  }
  std::size_t ServersInForce() const {
    return relay_->forwarding().instances().at(0).servers.size();
  }

  vxmw_t* mw_ = vxmw_init("relay_test");
  Resync resync_;
  std::unique_ptr<Relay> relay_ = std::make_unique<Relay>(
      mw_, dhcp_manager::Sockets(), dhcp_manager::OpenLinkSocket(), resync_,
      dhcp_manager::VrfDevices(), dhcp_manager::FloodLimits{}, dhcp_manager::Trust());
  std::uint32_t servers_ = 0;
};

TEST_F(RelayTest, ADumpIsInForceWhenItIsComplete) {
  Dump();
  EXPECT_EQ(relay_->version(), 1U);
  EXPECT_EQ(ServersInForce(), 1U);
}

TEST_F(RelayTest, CallsAreInForceTogetherOnceNoOtherFollows) {
  Dump();
  for (int call = 0; call < 3; ++call) {
    AddServer();
    EXPECT_EQ(ServersInForce(), 1U);
  }
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return relay_->version() > 1; }));
  EXPECT_EQ(relay_->version(), 2U);
  EXPECT_EQ(ServersInForce(), 4U);
}

TEST_F(RelayTest, NothingIsInForceBeforeTheFirstDump) {
  AddServer();
  int looks = 0;  // that are farther apart than calls that are put to use together
  EXPECT_TRUE(tests::RunUntil(mw_, [&] { return ++looks > 3; }));
  EXPECT_EQ(relay_->version(), 0U);
  EXPECT_TRUE(relay_->forwarding().instances().empty());
}

}  // namespace
