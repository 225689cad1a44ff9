// Which sockets of other processes take replies, and how often it is told.

#include "dhcp_manager/datapath/competing_sockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/dhcp_manager/datapath/datapath_fixture.h"
#include "tests/unit/dhcp_manager/datapath/scripted_routes.h"

namespace {

using dhcp_manager::CompetingSocket;
using dhcp_manager::CompetingSockets;
using dhcp_manager::kDefaultVrf;
using dhcp_manager::UdpSocket;
using dhcp_manager::VrfInodes;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::Ip;
using tests::kRedLink;
using tests::kRedVrf;
using tests::kUplink;

constexpr std::uint32_t kOwn = 1;
constexpr std::uint32_t kOwnRed = 2;
constexpr std::uint32_t kOther = 3;
constexpr int kRedUplink = 18;

class ScriptedQuery final : public dhcp_manager::UdpSocketQuery {
 public:
  std::vector<UdpSocket> Find(std::uint16_t port) override {
    EXPECT_EQ(port, 67);
    if (!error.empty()) throw std::runtime_error(error);
    return sockets;
  }

  std::vector<UdpSocket> sockets;
  std::string error;
};

class CompetingSocketsTest : public ::testing::Test {
 protected:
  CompetingSocketsTest() {
    configuration_.AddLink(kUplink, "uplink", "10.0.0.254", 0);
    configuration_.AddLink(kRedUplink, "red-uplink", "10.0.0.253", kRedVrf);
    routes_.routes = {{kDefaultVrf, Ip("10.0.0.1"), kUplink},
                      {kRedVrf, Ip("10.0.0.1"), kRedUplink}};
  }

  static UdpSocket Socket(const std::string& address, int device) {
    UdpSocket socket;
    if (!address.empty()) socket.address = Ip(address);
    socket.device = device;
    socket.inode = kOther;
    return socket;
  }
  // The VRFs whose replies the socket takes, by their devices.
  std::vector<std::string> Takes(const UdpSocket& socket, bool hears_vrfs = false) {
    const auto forwarding = configuration_.MakeForwarding();
    std::vector<std::string> devices;
    for (const CompetingSocket& found :
         SelectCompeting({socket}, own_, configuration_.links, forwarding, routes_, hears_vrfs)) {
      EXPECT_EQ(found.inode, socket.inode);
      EXPECT_EQ(found.address, socket.address);
      devices.push_back(found.vrf_device);
    }
    return devices;
  }
  void Look() { sockets_.Look(own_, configuration_.links, configuration_.MakeForwarding(), now_); }

  tests::Configuration configuration_;
  tests::ScriptedRoutes routes_;
  ScriptedQuery query_;
  VrfInodes own_{{kDefaultVrf, kOwn}, {kRedVrf, kOwnRed}};
  CompetingSockets::Clock::time_point now_{std::chrono::hours(1)};
  std::vector<std::string> reports_;
  CompetingSockets sockets_{query_, routes_,
                            [this](const std::string& text) { reports_.push_back(text); }};
};

TEST_F(CompetingSocketsTest, ASocketForARelayAddressTakesItsReplies) {
  EXPECT_THAT(Takes(Socket("192.168.5.1", 0)), ElementsAre(""));
  EXPECT_THAT(Takes(Socket("10.0.0.254", 0)), IsEmpty());
}

TEST_F(CompetingSocketsTest, OneForARelayAddressOfAVrfTakesThemWhereItHearsTheVrf) {
  EXPECT_THAT(Takes(Socket("192.168.6.1", 0)), IsEmpty());
  EXPECT_THAT(Takes(Socket("192.168.6.1", 0), true), ElementsAre("red"));
  EXPECT_THAT(Takes(Socket("192.168.6.1", kRedVrf)), ElementsAre("red"));
  EXPECT_THAT(Takes(Socket("192.168.6.1", kRedUplink)), ElementsAre("red"));
  EXPECT_THAT(Takes(Socket("192.168.6.1", kRedLink)), IsEmpty());
  EXPECT_THAT(Takes(Socket("192.168.5.1", kRedVrf)), IsEmpty());
}

TEST_F(CompetingSocketsTest, ASocketForEveryAddressTakesThoseOfItsVrf) {
  EXPECT_THAT(Takes(Socket("", 0)), ElementsAre(""));
  EXPECT_THAT(Takes(Socket("", kRedVrf)), ElementsAre("red"));
}

TEST_F(CompetingSocketsTest, OneThatHearsEveryVrfComesBehindTheVrfsOwn) {
  EXPECT_THAT(Takes(Socket("", 0), true), ElementsAre(""));
}

TEST_F(CompetingSocketsTest, ASocketOfADeviceTakesThemWhereServersAreBehindIt) {
  EXPECT_THAT(Takes(Socket("", kUplink)), ElementsAre(""));
  EXPECT_THAT(Takes(Socket("", tests::kLink)), IsEmpty());
  EXPECT_THAT(Takes(Socket("", kRedUplink)), ElementsAre("red"));
  EXPECT_THAT(Takes(Socket("", kRedLink)), IsEmpty());
}

TEST_F(CompetingSocketsTest, OneOfIPv6ComesBehindTheRelaysWhereNothingElseDecides) {
  const auto ipv6 = [](UdpSocket socket) {
    socket.ipv6 = true;
    return socket;
  };
  EXPECT_THAT(Takes(ipv6(Socket("", 0))), IsEmpty());
  EXPECT_THAT(Takes(ipv6(Socket("", kRedVrf))), IsEmpty());
  EXPECT_THAT(Takes(ipv6(Socket("", kRedUplink))), IsEmpty());
  EXPECT_THAT(Takes(ipv6(Socket("", kUplink))), ElementsAre(""));
  EXPECT_THAT(Takes(ipv6(Socket("192.168.5.1", 0))), ElementsAre(""));
}

TEST_F(CompetingSocketsTest, OneThatHearsAPeerTakesThoseOfThatServer) {
  UdpSocket socket = Socket("192.168.5.1", 0);
  socket.peer = Ip("10.0.0.1");
  EXPECT_THAT(Takes(socket), ElementsAre(""));
  socket.peer = Ip("10.0.0.9");
  EXPECT_THAT(Takes(socket), IsEmpty());
}

TEST_F(CompetingSocketsTest, TheRelaysOwnAreNoOthers) {
  UdpSocket socket = Socket("", 0);
  socket.inode = kOwn;
  EXPECT_THAT(Takes(socket), IsEmpty());
  socket.inode = kOwnRed;
  EXPECT_THAT(Takes(socket), IsEmpty());
}

TEST_F(CompetingSocketsTest, AVrfThatTheRelayDoesNotServeLosesNothing) {
  own_.erase(kDefaultVrf);
  EXPECT_THAT(Takes(Socket("192.168.5.1", 0)), IsEmpty());
}

TEST_F(CompetingSocketsTest, EachIsReportedOnceWhileItIsThere) {
  query_.sockets = {Socket("192.168.5.1", 0)};
  query_.sockets[0].user = 5;
  const std::string report =
      "a process of user 5 shares 192.168.5.1 port 67 in the default VRF and takes replies of "
      "servers";
  Look();
  Look();
  EXPECT_THAT(reports_, ElementsAre(report));
  EXPECT_EQ(sockets_.found().size(), 1U);
  query_.sockets.clear();
  Look();
  EXPECT_THAT(sockets_.found(), IsEmpty());
  query_.sockets = {Socket("", kRedVrf)};
  Look();
  EXPECT_THAT(reports_, ElementsAre(report,
                                    "a process of user 0 shares UDP port 67 in VRF red and takes "
                                    "replies of servers"));
}

TEST_F(CompetingSocketsTest, WhyNoneCanBeLookedForIsReportedOnce) {
  query_.error = "no such query";
  Look();
  Look();
  EXPECT_THAT(reports_, ElementsAre("no such query"));
  EXPECT_THAT(sockets_.found(), IsEmpty());
  query_.error.clear();
  Look();
  query_.error = "no such query";
  Look();
  EXPECT_EQ(reports_.size(), 2U);
}

TEST_F(CompetingSocketsTest, AreDueAMomentAfterTheLatestLook) {
  EXPECT_TRUE(sockets_.IsDue(now_));
  Look();
  EXPECT_FALSE(sockets_.IsDue(now_));
  EXPECT_TRUE(sockets_.IsDue(now_ + std::chrono::seconds(1)));
}

}  // namespace
