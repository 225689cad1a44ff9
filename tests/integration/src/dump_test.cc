// The daemon's handler and facade on the real platform and a real datastore: what a dump request of
// the DHCP manager makes them call.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <vxconfd/vxconfd.h>
#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "src/dhcp_relay_app/dhcp_mgr_facade.h"
#include "src/dhcp_relay_app/dhcp_relay_cfg_handler.h"
#include "src/dhcp_relay_app/mediator.h"
#include "src/lib/logger.h"
#include "tests/support/loop.h"
#include "tests/support/private_repository.h"
#include "tests/support/recording_user.h"

namespace {

using dhcp_relay_app::Controller;
using dhcp_relay_app::DhcpMgrFacade;
using dhcp_relay_app::DhcpRelayCfgHandler;
using dhcp_relay_app::Logger;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kLimBase = 0x01000000;  // interface identifiers of VRFs

constexpr char kVrfs[] = R"({ "metacli-internal:internal": { "vrf-config": { "stringTOindex": [
    { "name": "red", "vrf-idx": 7 } ] } } })";

// Passes the client's callbacks on to a facade that is made after the client.
class Callbacks : public dhcp_relay::DhcpUser::CallbackIf {
 public:
  void OnDumpRequest() override { facade->OnDumpRequest(); }
  void OnDumpCancel() override { facade->OnDumpCancel(); }
  DhcpMgrFacade* facade = nullptr;
};

class DumpTest : public ::testing::Test {
 protected:
  DumpTest() : mw_(vxmw_init("dump_test")) { Logger::Instance().Init(mw_); }

  ~DumpTest() override {
    app_interface_.reset();
    facade_.reset();
    user_.reset();
    handler_.reset();
    vxmw_finish(&mw_);
  }

  void StartDaemon() {
    auto mediator = std::make_shared<Controller>();
    handler_ = std::make_shared<DhcpRelayCfgHandler>(mw_, mediator);
    user_ = std::make_shared<tests::RecordingUser>(mw_, &callbacks_);
    facade_ = std::make_shared<DhcpMgrFacade>(mw_, mediator, user_);
    callbacks_.facade = facade_.get();
    app_interface_ = std::make_unique<vxconfd::AppInterface>(mw_, Logger::Instance().category,
                                                             "dump_test", ELEM_CONFD_PHASE_2);
    app_interface_->AddConfigHandler(handler_.get());
    app_interface_->Init(0);
  }

  bool RunUntilConnected() {
    return tests::RunUntil(mw_, [this] { return app_interface_->connected(); });
  }

  // Served by the daemon, as a commit is: a dump reads what has been delivered.
  void Commit(const std::string& json) {
    EXPECT_TRUE(tests::ServeWhile(mw_, [&] { repository_.Edit(json); }));
  }

  std::vector<std::string> Dump() {
    user_->calls.clear();
    facade_->OnDumpRequest();
    return user_->calls;
  }

  tests::PrivateRepository repository_;
  vxmw_t* mw_;
  Callbacks callbacks_;
  std::shared_ptr<DhcpRelayCfgHandler> handler_;
  std::shared_ptr<tests::RecordingUser> user_;
  std::shared_ptr<DhcpMgrFacade> facade_;
  std::unique_ptr<vxconfd::AppInterface> app_interface_;
};

TEST_F(DumpTest, WhileConnectedIsAnsweredInsideTheCall) {
  repository_.InstallModels();
  repository_.Edit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
      { "name": "r1", "server": { "ipv4": [ { "address": "10.0.0.1" } ] } } ] } } })");
  StartDaemon();
  ASSERT_TRUE(app_interface_->connected());
  EXPECT_THAT(Dump(), ElementsAre("AddServer r1 10.0.0.1", "SetCheck r1 false",
                                  "SetTrusted r1 false", "SetOption r1 false", "SetPolicy r1 1"));
}

TEST_F(DumpTest, OfNoInstancesCallsNothing) {
  repository_.InstallModels();
  StartDaemon();
  ASSERT_TRUE(app_interface_->connected());
  EXPECT_THAT(Dump(), IsEmpty());
}

TEST_F(DumpTest, WithoutARequestTheInitialPhasesCallNothing) {
  repository_.InstallModels();
  repository_.Edit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
      { "name": "r1" } ] } } })");
  StartDaemon();
  ASSERT_TRUE(RunUntilConnected());
  EXPECT_THAT(user_->calls, IsEmpty());
}

TEST_F(DumpTest, BeforeTheDatastoreIsReadyIsServedByTheInitialPhases) {
  StartDaemon();
  ASSERT_FALSE(app_interface_->connected());
  EXPECT_THAT(Dump(), IsEmpty());

  repository_.InstallModels();
  ASSERT_TRUE(RunUntilConnected());
  EXPECT_TRUE(vxmw::ConfigReady(mw_));
  EXPECT_THAT(user_->calls, IsEmpty());  // there are no instances yet

  Commit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
      { "name": "r1" } ] } } })");
  EXPECT_THAT(Dump(), Contains("SetCheck r1 false"));
}

TEST_F(DumpTest, WaitingForAModelIsServedOnceItIsThere) {
  StartDaemon();
  EXPECT_THAT(Dump(), IsEmpty());

  // The models come with a configuration:
  // the startup datastore is filled before the daemon can see it.
  repository_.InstallModelsWithConfiguration(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": {
      "relay": [ { "name": "r1" }, { "name": "r2" } ] } } })");
  ASSERT_TRUE(RunUntilConnected());
  EXPECT_THAT(user_->calls,
              ElementsAre("SetCheck r1 false", "SetTrusted r1 false", "SetOption r1 false",
                          "SetPolicy r1 1", "SetCheck r2 false", "SetTrusted r2 false",
                          "SetOption r2 false", "SetPolicy r2 1"));
}

TEST_F(DumpTest, CancelledBeforeTheDatastoreIsReadyIsNotServed) {
  StartDaemon();
  EXPECT_THAT(Dump(), IsEmpty());
  facade_->OnDumpCancel();

  repository_.InstallModelsWithConfiguration(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": {
      "relay": [ { "name": "r1" } ] } } })");
  ASSERT_TRUE(RunUntilConnected());
  EXPECT_THAT(user_->calls, IsEmpty());
}

TEST_F(DumpTest, TurnsTheVrfNameIntoItsInterfaceIdentifier) {
  repository_.InstallModels();
  repository_.Edit(kVrfs);
  repository_.Edit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
      { "name": "r1", "vrf": "red" } ] } } })");
  StartDaemon();
  EXPECT_EQ(Dump().back(), "SetVrf r1 " + std::to_string(kLimBase + 7));
}

TEST_F(DumpTest, GivesAnInterfaceItsVlanAndAddress) {
  repository_.InstallModels();
  repository_.Edit(R"({ "vx-config:config": {
      "vx-interface:interface": { "l3": [ { "name": "5", "lower-layer-if": { "vlan": 5 },
                                            "ipv4": { "address": { "ip": "192.168.1.1/24" } } } ] },
      "vx-dhcp-relay:dhcp": { "relay": [
          { "name": "r1", "interface": [ { "name": "l3-5" } ] } ] } } })");
  StartDaemon();
  const auto calls = Dump();
  ASSERT_EQ(calls.size(), 7U);
  EXPECT_EQ(calls[4], "AddL3Interface r1 l3-5");
  EXPECT_EQ(calls[5], "SetL3InterfaceVlan r1 l3-5 5");
  EXPECT_EQ(calls[6], "SetL3InterfaceAddress r1 l3-5 192.168.1.1");
}

TEST_F(DumpTest, GivesAnInterfaceMissingInTheInterfaceTreeNeitherVlanNorAddress) {
  repository_.InstallModels();
  repository_.Edit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
      { "name": "r1", "interface": [ { "name": "l3-9" } ] } ] } } })");
  StartDaemon();
  EXPECT_EQ(Dump().back(), "AddL3Interface r1 l3-9");
}

TEST_F(DumpTest, KeepsTheLow16BitsOfAVlanId) {
  repository_.InstallModels();
  repository_.InstallModel("loose-vlan", R"(module loose-vlan {
      yang-version 1.1; namespace "urn:test:loose-vlan"; prefix lv;
      import vx-config { prefix vxc; } import vx-interface { prefix vxi; }
      deviation /vxc:config/vxi:interface/vxi:l3/vxi:lower-layer-if/vxi:vlan {
        deviate replace { type int32; } } })");
  repository_.Edit(R"({ "vx-config:config": {
      "vx-interface:interface": { "l3": [ { "name": "5", "lower-layer-if": { "vlan": 70000 } } ] },
      "vx-dhcp-relay:dhcp": { "relay": [
          { "name": "r1", "interface": [ { "name": "l3-5" } ] } ] } } })");
  StartDaemon();
  EXPECT_EQ(Dump().back(), "SetL3InterfaceVlan r1 l3-5 4464");
}

TEST_F(DumpTest, GivesAnOverrideItsFourValues) {
  repository_.InstallModels();
  repository_.Edit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [ { "name": "r1",
      "if-option": [ { "name": "l3-5", "relay-information": {
          "check": true, "trusted": true, "option": false, "policy": "drop" } } ] } ] } } })");
  StartDaemon();
  const auto calls = Dump();
  ASSERT_EQ(calls.size(), 8U);
  EXPECT_EQ(calls[4], "SetIfOptionCheck r1 l3-5 true");
  EXPECT_EQ(calls[5], "SetIfOptionTrusted r1 l3-5 true");
  EXPECT_EQ(calls[6], "SetIfOptionOption r1 l3-5 false");
  EXPECT_EQ(calls[7], "SetIfOptionPolicy r1 l3-5 0");
}

TEST_F(DumpTest, ReadsTheConfigurationAnewEachTime) {
  repository_.InstallModels();
  StartDaemon();
  EXPECT_THAT(Dump(), IsEmpty());
  Commit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [
      { "name": "r1", "relay-information": { "policy": "replace" } } ] } } })");
  EXPECT_THAT(Dump(), Contains("SetPolicy r1 2"));
}

}  // namespace
