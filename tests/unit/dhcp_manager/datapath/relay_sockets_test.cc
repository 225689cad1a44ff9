// Which sockets are open, and what happens when one cannot be opened.

#include "dhcp_manager/datapath/relay_sockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

#include "tests/support/loop.h"
#include "tests/unit/dhcp_manager/datapath/datapath_fixture.h"
#include "tests/unit/dhcp_manager/datapath/scripted_opener.h"

namespace {

using dhcp_manager::Forwarding;
using dhcp_manager::kDefaultVrf;
using dhcp_manager::MissingSocket;
using dhcp_manager::RelaySockets;
using dhcp_manager::VrfSocket;
using ::testing::ElementsAre;
using ::testing::Key;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;
using tests::Configuration;
using tests::kRedLink;
using tests::kRedVrf;

constexpr dhcp_manager::SocketDelays kDelays{.retry = std::chrono::milliseconds(1),
                                             .release = std::chrono::milliseconds(1)};

// What the scripted opener says.
constexpr char kNoPacketSocket[] = "cannot open a packet socket: Operation not permitted";
constexpr char kNoRed[] = "cannot bind to the VRF device red: No such device";

class RelaySocketsTest : public ::testing::Test {
 protected:
  ~RelaySocketsTest() override {
    sockets_.reset();
    vxmw_finish(&mw_);
  }

  void Apply() {
    forwarding_ = configuration_.MakeForwarding();
    sockets_->Apply(forwarding_);
  }
  bool RunUntil(const std::function<bool()>& condition) { return tests::RunUntil(mw_, condition); }
  bool HasVrf(dhcp_manager::VrfIfindex vrf) { return sockets_->VrfOutboxes().contains(vrf); }
  long Attempts(const std::string& what) const {
    return std::ranges::count(opener_.attempts, what);
  }
  void RemoveInstance(const std::string& instance) {
    configuration_.table.Apply(tests::Call(tests::wire::DELETE_INSTANCE, instance));
  }

  vxmw_t* mw_ = vxmw_init("relay_sockets_test");
  Configuration configuration_;
  Forwarding forwarding_;
  tests::ScriptedOpener opener_;
  int requests_ = 0;
  std::vector<int> replies_;
  int opened_ = 0;
  std::vector<std::string> failures_;
  std::unique_ptr<RelaySockets> sockets_ = std::make_unique<RelaySockets>(
      mw_, opener_,
      RelaySockets::Handlers{
          .on_requests =
              [this] {
                opener_.client.Clear();
                ++requests_;
              },
          .on_replies =
              [this](VrfSocket& socket) {
                opener_.vrfs[socket.vrf == kRedVrf ? "red" : ""].Clear();
                replies_.push_back(socket.vrf);
              },
          .on_opened = [this] { ++opened_; },
          .on_failure = [this](const std::string& reason) { failures_.push_back(reason); }},
      kDelays);
};

TEST_F(RelaySocketsTest, NothingIsOpenBeforeAnInterfaceNeedsIt) {
  sockets_->Apply(Forwarding());
  EXPECT_THAT(opener_.attempts, ElementsAre());
  EXPECT_EQ(sockets_->client(), nullptr);
}

TEST_F(RelaySocketsTest, OpensOneSocketTowardsClientsAndOnePerVrf) {
  Apply();
  EXPECT_THAT(opener_.attempts, ElementsAre("clients", "VRF ", "VRF red"));
  EXPECT_NE(sockets_->client(), nullptr);
  EXPECT_THAT(sockets_->VrfOutboxes(), UnorderedElementsAre(Key(kDefaultVrf), Key(kRedVrf)));
  EXPECT_EQ(opened_, 0);
}

TEST_F(RelaySocketsTest, WhatIsOpenStaysOpen) {
  Apply();
  const auto outboxes = sockets_->VrfOutboxes();
  Apply();
  EXPECT_EQ(opener_.attempts.size(), 3U);
  EXPECT_EQ(sockets_->VrfOutboxes(), outboxes);
}

TEST_F(RelaySocketsTest, AnInterfaceThatGoesDoesNotCloseItsVrf) {
  Apply();
  configuration_.links.RemoveAddress(configuration_.links.AddressesOf(kRedLink)[0]);
  Apply();
  EXPECT_FALSE(forwarding_.vrfs().contains(kRedVrf));
  EXPECT_TRUE(HasVrf(kRedVrf));
}

TEST_F(RelaySocketsTest, TheLastInstanceOfAVrfClosesItsSocket) {
  Apply();
  RemoveInstance("red");
  Apply();
  EXPECT_FALSE(HasVrf(kRedVrf));
  EXPECT_TRUE(HasVrf(kDefaultVrf));
  EXPECT_EQ(opener_.open, 2);
}

TEST_F(RelaySocketsTest, ADeviceThatGoesClosesItsSocket) {
  Apply();
  configuration_.links.RemoveLink(kRedVrf);
  Apply();
  EXPECT_FALSE(HasVrf(kRedVrf));
}

TEST_F(RelaySocketsTest, AVrfThatFailsIsTriedAgainAndKeepsNoOtherFromOpening) {
  opener_.vrf_errors[""] = 3;
  Apply();
  EXPECT_FALSE(HasVrf(kDefaultVrf));
  EXPECT_TRUE(HasVrf(kRedVrf));
  ASSERT_TRUE(RunUntil([this] { return opened_ > 0; }));
  EXPECT_TRUE(HasVrf(kDefaultVrf));
  EXPECT_EQ(opened_, 1);
  EXPECT_EQ(Attempts("VRF "), 4);
  EXPECT_EQ(Attempts("VRF red"), 1);
}

TEST_F(RelaySocketsTest, WithoutTheClientSocketNoOtherIsOpened) {
  opener_.client_errors = 2;
  Apply();
  EXPECT_EQ(sockets_->client(), nullptr);
  EXPECT_THAT(sockets_->VrfOutboxes(), ElementsAre());
  ASSERT_TRUE(RunUntil([this] { return opened_ > 0; }));
  EXPECT_THAT(opener_.attempts, ElementsAre("clients", "clients", "clients", "VRF ", "VRF red"));
}

TEST_F(RelaySocketsTest, WhatIsNoLongerNeededIsNotTriedAgain) {
  opener_.vrf_errors["red"] = 1'000'000;
  opener_.vrf_errors[""] = 20;
  Apply();
  RemoveInstance("red");
  Apply();
  const auto attempts = Attempts("VRF red");
  ASSERT_TRUE(RunUntil([this] { return opened_ > 0; }));
  EXPECT_EQ(Attempts("VRF red"), attempts);
}

TEST_F(RelaySocketsTest, ARenamedDeviceIsTriedByItsNewName) {
  opener_.vrf_errors["red"] = 1'000'000;
  Apply();
  configuration_.links.SetLink(
      {.index = kRedVrf, .name = "scarlet", .up = true, .vrf_table = tests::kRedTable});
  Apply();
  EXPECT_EQ(Attempts("VRF scarlet"), 1);
  EXPECT_TRUE(HasVrf(kRedVrf));
}

TEST_F(RelaySocketsTest, AVrfWithoutItsSocketHasTheReasonUntilItHasOne) {
  opener_.vrf_errors["red"] = 3;
  Apply();
  EXPECT_EQ(sockets_->FailureOf(kRedVrf), kNoRed);
  EXPECT_THAT(sockets_->Missing(), ElementsAre(MissingSocket{"red", kNoRed}));
  EXPECT_EQ(sockets_->FailureOf(kDefaultVrf), "");
  EXPECT_EQ(sockets_->FailureOf(77), "");
  ASSERT_TRUE(RunUntil([this] { return opened_ > 0; }));
  EXPECT_EQ(sockets_->FailureOf(kRedVrf), "");
  EXPECT_THAT(sockets_->Missing(), ElementsAre());
}

TEST_F(RelaySocketsTest, WithoutTheClientSocketEveryVrfHasItsReason) {
  opener_.client_errors = 1'000'000;
  Apply();
  EXPECT_THAT(sockets_->Missing(), ElementsAre(MissingSocket{"", kNoPacketSocket},
                                               MissingSocket{"red", kNoPacketSocket}));
  EXPECT_EQ(sockets_->FailureOf(kRedVrf), kNoPacketSocket);
}

TEST_F(RelaySocketsTest, AFailureIsReportedOnceForEachReason) {
  opener_.vrf_errors["red"] = 5;
  Apply();
  ASSERT_TRUE(RunUntil([this] { return opened_ > 0; }));
  EXPECT_THAT(failures_, ElementsAre("the socket of VRF red is missing, trying again: " +
                                     std::string(kNoRed)));
}

TEST_F(RelaySocketsTest, TheVersionChangesWithWhatCanBeAskedFor) {
  opener_.vrf_errors["red"] = 1;
  const auto none = sockets_->version();
  Apply();
  const auto failed = sockets_->version();
  EXPECT_NE(failed, none);
  ASSERT_TRUE(RunUntil([this] { return opened_ > 0; }));
  const auto opened = sockets_->version();
  EXPECT_NE(opened, failed);
  Apply();
  EXPECT_EQ(sockets_->version(), opened);
}

TEST_F(RelaySocketsTest, HasTheInodesOfTheVrfsSockets) {
  opener_.vrf_errors[""] = 1'000'000;
  Apply();
  struct stat status{};
  ASSERT_EQ(fstat(opener_.vrfs["red"].event.get(), &status), 0);
  EXPECT_THAT(sockets_->Inodes(), UnorderedElementsAre(Pair(kRedVrf, status.st_ino)));
}

TEST_F(RelaySocketsTest, ThePortIsReleasedOnceNoVrfNeedsIt) {
  Apply();
  RemoveInstance("red");
  Apply();
  int turns = 0;
  ASSERT_TRUE(RunUntil([&] { return ++turns > 5; }));
  EXPECT_EQ(opener_.releases, 0);
  RemoveInstance("r1");
  Apply();
  EXPECT_TRUE(RunUntil([this] { return opener_.releases == 1; }));
}

TEST_F(RelaySocketsTest, ThePortIsKeptForAVrfThatComesSoon) {
  Apply();
  sockets_->Apply(Forwarding());
  Apply();
  int turns = 0;
  ASSERT_TRUE(RunUntil([&] { return ++turns > 5; }));
  EXPECT_EQ(opener_.releases, 0);
  EXPECT_TRUE(HasVrf(kRedVrf));
}

TEST_F(RelaySocketsTest, AReadableSocketWakesItsHandler) {
  Apply();
  opener_.client.Set();
  opener_.vrfs["red"].Set();
  EXPECT_TRUE(RunUntil([this] { return requests_ > 0 && !replies_.empty(); }));
  EXPECT_THAT(replies_, ElementsAre(kRedVrf));
}

TEST_F(RelaySocketsTest, WithoutWakeUpsNoHandlerIsCalledUntilTheyAreBack) {
  configuration_.links.RemoveAddress(configuration_.links.AddressesOf(kRedLink)[0]);
  Apply();
  sockets_->SetWakeUp(false);
  // A socket that is opened meanwhile does not wake up either.
  configuration_ = Configuration();
  Apply();
  opener_.client.Set();
  opener_.vrfs["red"].Set();
  int turns = 0;
  ASSERT_TRUE(RunUntil([&] { return ++turns > 5; }));
  EXPECT_EQ(requests_, 0);
  EXPECT_THAT(replies_, ElementsAre());
  sockets_->SetWakeUp(true);
  EXPECT_TRUE(RunUntil([this] { return requests_ > 0 && !replies_.empty(); }));
}

}  // namespace
