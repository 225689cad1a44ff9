// The application object: assembly, the run loop's result, and the order in which its parts go.

#include <optional>
#include <stdexcept>

#include "src/dhcp_relay_app/main.h"
#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Parts that note when they go, and how many components are registered then.
class NotingController : public Controller {
 public:
  ~NotingController() override { Note("~Controller"); }
  void Note(const std::string& what) const {
    fakes::Journal::Get().Add(what + ", " + std::to_string(components_.size()) + " registered");
  }
};

class NotingHandler : public DhcpRelayCfgHandler {
 public:
  NotingHandler(vxmw_t* mw, const std::shared_ptr<NotingController>& controller)
      : DhcpRelayCfgHandler(mw, controller), controller_(*controller) {}
  ~NotingHandler() override { controller_.Note("~DhcpRelayCfgHandler"); }

 private:
  NotingController& controller_;
};

class NotingFacade : public DhcpMgrFacade {
 public:
  NotingFacade(vxmw_t* mw, const std::shared_ptr<NotingController>& controller)
      : DhcpMgrFacade(mw, controller, nullptr), controller_(*controller) {}
  ~NotingFacade() override { controller_.Note("~DhcpMgrFacade"); }

 private:
  NotingController& controller_;
};

class ApplicationTest : public DaemonTest {
 protected:
  vxmw_t* const mw_ = fakes::Vxmw::Handle();
};

TEST_F(ApplicationTest, NullHandleIsRefused) {
  try {
    const DhcpRelayApp app(nullptr, nullptr, nullptr, nullptr);
    FAIL() << "it was accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Invalid middleware handler");
  }
  EXPECT_THAT(journal_.entries(), IsEmpty());
}

TEST_F(ApplicationTest, EmptyPointersAreReplacedInOrder) {
  const DhcpRelayApp app(mw_, nullptr, nullptr, nullptr);
  EXPECT_THAT(journal_.entries(),
              ElementsAre("zlog 10 DhcpRelayCfgHandler: Entry Point", "DhcpUser", "AppInterface",
                          "AppInterface::AddConfigHandler", "AppInterface::Init 0"));
  ASSERT_THAT(adapter_.handlers, ElementsAre(::testing::NotNull()));
  EXPECT_NE(dynamic_cast<DhcpRelayCfgHandler*>(adapter_.handlers[0]), nullptr);
  EXPECT_NE(dynamic_cast<DhcpMgrFacade*>(dhcp_user_.callbacks), nullptr);
}

// A command that both components act upon, in the order in which it reaches them.
class ForBoth : public DhcpDumpRequest, public DhcpRelayIntfCmd {
 public:
  explicit ForBoth(const DhcpRelayIntf& record) : DhcpRelayIntfCmd(record, false) {}
};

TEST_F(ApplicationTest, HandlerRegistersFirstAndFacadeSecond) {
  auto controller = std::make_shared<Controller>();
  const DhcpRelayApp app(mw_, controller, nullptr, nullptr);
  DhcpRelayIntf intf("r1");
  intf.AddServerAddr(Ip("10.0.0.1"));
  ForBoth command(intf);
  journal_.Clear();
  controller->Notify(nullptr, static_cast<DhcpDumpRequest*>(&command));
  EXPECT_THAT(
      journal_.StartingWithAny({"zlog", "DhcpUser"}),
      ElementsAre("zlog 10 ProcessDumpRequest: Entry Point", "DhcpUser::AddServer r1 10.0.0.1"));
}

TEST_F(ApplicationTest, GivenPartsAreUsedUnchanged) {
  auto controller = std::make_shared<NotingController>();
  auto handler = std::make_shared<NotingHandler>(mw_, controller);
  auto facade = std::make_shared<NotingFacade>(mw_, controller);
  journal_.Clear();
  const long controller_uses = controller.use_count();
  std::optional<DhcpRelayApp> app(std::in_place, mw_, controller, handler, facade);
  EXPECT_THAT(journal_.entries(), ElementsAre("AppInterface", "AppInterface::AddConfigHandler",
                                              "AppInterface::Init 0"));
  EXPECT_EQ(controller.use_count(), controller_uses + 1);
  EXPECT_EQ(handler.use_count(), 2);
  EXPECT_EQ(facade.use_count(), 2);
  EXPECT_THAT(adapter_.handlers, ElementsAre(static_cast<vxconfd::ConfigHandler*>(handler.get())));
  app.reset();
  EXPECT_EQ(handler.use_count(), 1);
  EXPECT_EQ(facade.use_count(), 1);
}

TEST_F(ApplicationTest, MissingPartsJoinTheGivenMediator) {
  auto controller = std::make_shared<NotingController>();
  const DhcpRelayApp app(mw_, controller, nullptr, nullptr);
  journal_.Clear();
  controller->Note("running");
  EXPECT_THAT(journal_.entries(), ElementsAre("running, 2 registered"));
}

TEST_F(ApplicationTest, GivenHandlerIsKeptWhileTheOthersAreMade) {
  auto controller = std::make_shared<NotingController>();
  auto handler = std::make_shared<NotingHandler>(mw_, controller);
  journal_.Clear();
  const DhcpRelayApp app(mw_, nullptr, handler, nullptr);
  EXPECT_THAT(journal_.entries(),
              ElementsAre("DhcpUser", "AppInterface", "AppInterface::AddConfigHandler",
                          "AppInterface::Init 0"));
}

TEST_F(ApplicationTest, PartsGoInReverseOrder) {
  auto controller = std::make_shared<NotingController>();
  auto handler = std::make_shared<NotingHandler>(mw_, controller);
  auto facade = std::make_shared<NotingFacade>(mw_, controller);
  NotingController& registry = *controller;
  std::optional<DhcpRelayApp> app(std::in_place, mw_, std::move(controller), std::move(handler),
                                  std::move(facade));
  adapter_.on_destroy = [&] { registry.Note("adapter gone"); };
  dhcp_user_.on_destroy = [&] { registry.Note("client gone"); };
  journal_.Clear();
  app.reset();
  EXPECT_THAT(journal_.entries(),
              ElementsAre("~AppInterface", "adapter gone, 2 registered",
                          "~DhcpMgrFacade, 2 registered", "~DhcpUser", "client gone, 2 registered",
                          "~DhcpRelayCfgHandler, 1 registered", "~Controller, 0 registered"));
  adapter_.on_destroy = nullptr;
  dhcp_user_.on_destroy = nullptr;
}

TEST_F(ApplicationTest, PartsGoInReverseOrderWhenTheStartFails) {
  auto controller = std::make_shared<NotingController>();
  auto handler = std::make_shared<NotingHandler>(mw_, controller);
  auto facade = std::make_shared<NotingFacade>(mw_, controller);
  adapter_.on_init = [] { throw std::runtime_error("no database"); };
  journal_.Clear();
  EXPECT_THROW(DhcpRelayApp(mw_, std::move(controller), std::move(handler), std::move(facade)),
               std::runtime_error);
  EXPECT_THAT(journal_.StartingWith("~"),
              ElementsAre("~AppInterface", "~DhcpMgrFacade, 2 registered", "~DhcpUser",
                          "~DhcpRelayCfgHandler, 1 registered", "~Controller, 0 registered"));
}

TEST_F(ApplicationTest, RunHandsHandleFlagAndTimeoutToTheLoop) {
  DhcpRelayApp app(mw_, nullptr, nullptr, nullptr);
  EXPECT_EQ(app.Run(250), 0);
  EXPECT_EQ(middleware_.loop_handle, mw_);
  EXPECT_TRUE(middleware_.loop_flag);
  EXPECT_EQ(middleware_.loop_timeout, 250);
}

TEST_F(ApplicationTest, RunReturnsOneForAnyFailureOfTheLoop) {
  DhcpRelayApp app(mw_, nullptr, nullptr, nullptr);
  for (const int result : {1, -1, 256, -256}) {
    middleware_.loop_result = result;
    EXPECT_EQ(app.Run(0), 1) << result;
  }
}

TEST_F(ApplicationTest, DumpWaitsForTheInitialPhasesOfTheAdapter) {
  confd_.SetList("/config/dhcp/relay", {});
  adapter_.on_init = [this] {
    dhcp_user_.callbacks->OnDumpRequest();
    EXPECT_EQ(confd_.opened_sessions(), 0);
    adapter_.handlers[0]->LoadInitialConfig();
    EXPECT_EQ(confd_.opened_sessions(), 1);
    adapter_.handlers[0]->ApplyInitialConfig();
  };
  const DhcpRelayApp app(mw_, nullptr, nullptr, nullptr);
  EXPECT_EQ(confd_.opened_sessions(), 1);
}

}  // namespace
}  // namespace dhcp_relay_app
