#include "src/dhcp_relay_app/dhcp_mgr_facade.h"

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FacadeTest : public DaemonTest {
 protected:
  void Set(const DhcpRelayIntf& intf) { Hand(intf, false); }
  void Delete(const DhcpRelayIntf& intf) { Hand(intf, true); }
  void Hand(const DhcpRelayIntf& intf, bool is_delete) {
    DhcpRelayIntfCmd command(intf, is_delete);
    facade_.HandleCommand(&command);
  }

  std::shared_ptr<Controller> controller_ = std::make_shared<Controller>();
  std::shared_ptr<fakes::ClientDouble> client_ = std::make_shared<fakes::ClientDouble>();
  DhcpMgrFacade facade_{fakes::Vxmw::Handle(), controller_, client_};
};

// A record that uses every field; the marks for deletion are on entries of their own.
DhcpRelayIntf RichRecord() {
  DhcpRelayIntf intf("r1");
  intf.check = TriState::kYes;
  intf.option = TriState::kNo;
  intf.trusted = TriState::kYes;
  intf.policy = DhcpRelayPolicy::kReplace;
  intf.SetVrfDeleted();
  intf.SetVrfId(7);
  intf.AddServerAddr(Ip("10.0.0.2"));
  intf.AddServerAddr(Ip("10.0.0.1"));
  intf.AddDeletedServerAddr(Ip("10.0.0.4"));
  intf.AddDeletedServerAddr(Ip("10.0.0.3"));

  DhcpRelayL3Intf& kept = intf.GetOrAddL3Intf("l3-5");
  kept.SetAddedVlanId(20);
  kept.SetDeletedVlanId(10);
  kept.SetIpv4Addr(Ip("192.168.1.1"));
  DhcpRelayL3Intf& gone = intf.GetOrAddL3Intf("l3-6");
  gone.SetAddedVlanId(21);
  gone.SetDeletedVlanId(11);
  gone.SetIpv4Addr(Ip("192.168.2.1"));
  gone.SetShouldDelete();
  intf.GetOrAddL3Intf("l3-7");

  DhcpRelayIfOption& override_kept = intf.GetOrAddIfOption("l3-5");
  override_kept.check = TriState::kNo;
  override_kept.option = TriState::kYes;
  override_kept.trusted = TriState::kNo;
  override_kept.policy = DhcpRelayPolicy::kDrop;
  DhcpRelayIfOption& override_gone = intf.GetOrAddIfOption("l3-6");
  override_gone.check = TriState::kYes;
  override_gone.policy = DhcpRelayPolicy::kKeep;
  override_gone.SetShouldDelete();
  return intf;
}

TEST_F(FacadeTest, SetSendsEveryFieldInOrder) {
  Set(RichRecord());
  EXPECT_THAT(client_->calls,
              ElementsAre("AddServer r1 10.0.0.2", "AddServer r1 10.0.0.1", "SetCheck r1 true",
                          "SetTrusted r1 true", "SetOption r1 false", "SetPolicy r1 2",
                          "AddL3Interface r1 l3-5", "SetL3InterfaceVlan r1 l3-5 20",
                          "SetL3InterfaceAddress r1 l3-5 192.168.1.1", "AddL3Interface r1 l3-7",
                          "SetIfOptionCheck r1 l3-5 false", "SetIfOptionTrusted r1 l3-5 false",
                          "SetIfOptionOption r1 l3-5 true", "SetIfOptionPolicy r1 l3-5 0",
                          "SetVrf r1 16777223"));
}

TEST_F(FacadeTest, DeleteSendsEveryMarkInOrder) {
  Delete(RichRecord());
  EXPECT_THAT(client_->calls,
              ElementsAre("SetVrf r1 0", "DeleteServer r1 10.0.0.4", "DeleteServer r1 10.0.0.3",
                          "DeleteL3InterfaceVlan r1 l3-5 10", "DeleteL3InterfaceVlan r1 l3-6 11",
                          "DeleteL3Interface r1 l3-6", "DeleteIfOption r1 l3-6"));
}

TEST_F(FacadeTest, SetOfADeletedInstanceSendsNothing) {
  DhcpRelayIntf intf = RichRecord();
  intf.SetShouldDelete();
  Set(intf);
  EXPECT_THAT(client_->calls, IsEmpty());
}

TEST_F(FacadeTest, DeleteOfADeletedInstanceSendsDeleteInstanceAlone) {
  DhcpRelayIntf intf = RichRecord();
  intf.SetShouldDelete();
  Delete(intf);
  EXPECT_THAT(client_->calls, ElementsAre("DeleteInstance r1"));
}

TEST_F(FacadeTest, EmptyRecordSendsNothing) {
  Set(DhcpRelayIntf("r1"));
  Delete(DhcpRelayIntf("r1"));
  EXPECT_THAT(client_->calls, IsEmpty());
}

TEST_F(FacadeTest, SwitchOtherThanYesIsSentAsFalse) {
  DhcpRelayIntf intf("r1");
  intf.check = static_cast<TriState>(5);
  intf.trusted = static_cast<TriState>(-2);
  intf.option = TriState::kNo;
  DhcpRelayIfOption& if_option = intf.GetOrAddIfOption("l3-5");
  if_option.check = static_cast<TriState>(5);
  if_option.trusted = static_cast<TriState>(2);
  if_option.option = TriState::kNo;
  Set(intf);
  EXPECT_THAT(client_->calls,
              ElementsAre("SetCheck r1 false", "SetTrusted r1 false", "SetOption r1 false",
                          "SetIfOptionCheck r1 l3-5 false", "SetIfOptionTrusted r1 l3-5 false",
                          "SetIfOptionOption r1 l3-5 false"));
}

TEST_F(FacadeTest, EachSettingIsSentOnItsOwn) {
  const auto calls_after = [&](auto change) {
    DhcpRelayIntf intf("r1");
    change(intf);
    client_->calls.clear();
    Set(intf);
    return client_->calls;
  };
  EXPECT_THAT(calls_after([](auto& r) { r.check = TriState::kYes; }),
              ElementsAre("SetCheck r1 true"));
  EXPECT_THAT(calls_after([](auto& r) { r.trusted = TriState::kYes; }),
              ElementsAre("SetTrusted r1 true"));
  EXPECT_THAT(calls_after([](auto& r) { r.option = TriState::kYes; }),
              ElementsAre("SetOption r1 true"));
  EXPECT_THAT(calls_after([](auto& r) { r.policy = DhcpRelayPolicy::kDrop; }),
              ElementsAre("SetPolicy r1 0"));
  EXPECT_THAT(calls_after([](auto& r) { r.GetOrAddIfOption("i").check = TriState::kYes; }),
              ElementsAre("SetIfOptionCheck r1 i true"));
  EXPECT_THAT(calls_after([](auto& r) { r.GetOrAddIfOption("i").trusted = TriState::kYes; }),
              ElementsAre("SetIfOptionTrusted r1 i true"));
  EXPECT_THAT(calls_after([](auto& r) { r.GetOrAddIfOption("i").option = TriState::kYes; }),
              ElementsAre("SetIfOptionOption r1 i true"));
  EXPECT_THAT(calls_after([](auto& r) { r.GetOrAddIfOption("i").policy = DhcpRelayPolicy::kKeep; }),
              ElementsAre("SetIfOptionPolicy r1 i 1"));
}

TEST_F(FacadeTest, PolicyOtherThanUndefinedIsPassedOnAsItIs) {
  DhcpRelayIntf intf("r1");
  intf.policy = static_cast<DhcpRelayPolicy>(7);
  Set(intf);
  EXPECT_THAT(client_->calls, ElementsAre("SetPolicy r1 7"));
}

TEST_F(FacadeTest, L3InterfaceWithoutVlanAndAddressIsOnlyAdded) {
  DhcpRelayIntf intf("r1");
  intf.GetOrAddL3Intf("l3-5");
  Set(intf);
  EXPECT_THAT(client_->calls, ElementsAre("AddL3Interface r1 l3-5"));
}

TEST_F(FacadeTest, VlanAndAddressOfAnL3InterfaceAreSentOnTheirOwn) {
  DhcpRelayIntf intf("r1");
  intf.GetOrAddL3Intf("l3-5").SetIpv4Addr(Ip("0.0.0.1"));
  intf.GetOrAddL3Intf("l3-6").SetAddedVlanId(65535);
  Set(intf);
  EXPECT_THAT(client_->calls,
              ElementsAre("AddL3Interface r1 l3-5", "SetL3InterfaceAddress r1 l3-5 0.0.0.1",
                          "AddL3Interface r1 l3-6", "SetL3InterfaceVlan r1 l3-6 65535"));
}

TEST_F(FacadeTest, DeletedL3InterfaceWithoutFormerVlanIsOnlyDeleted) {
  DhcpRelayIntf intf("r1");
  intf.GetOrAddL3Intf("l3-5").SetShouldDelete();
  Delete(intf);
  EXPECT_THAT(client_->calls, ElementsAre("DeleteL3Interface r1 l3-5"));
}

TEST_F(FacadeTest, VrfNumberBecomesAnInterfaceIdentifier) {
  DhcpRelayIntf intf("r1");
  intf.SetVrfId(limid_max_number);
  Set(intf);
  limid_t expected = 0;
  ASSERT_EQ(limid_from_intfname_suffix(&expected, "16777215", limid_type_vrf), 0);
  EXPECT_THAT(client_->calls, ElementsAre("SetVrf r1 " + std::to_string(expected)));
}

TEST_F(FacadeTest, VrfNumberThatHasNoIdentifierIsSentAsZero) {
  DhcpRelayIntf intf("r1");
  intf.SetVrfId(0xFFFFFFFFU);
  Set(intf);
  EXPECT_THAT(client_->calls, ElementsAre("SetVrf r1 0"));
}

TEST_F(FacadeTest, SetIgnoresTheVrfMark) {
  DhcpRelayIntf intf("r1");
  intf.SetVrfDeleted();
  Set(intf);
  EXPECT_THAT(client_->calls, IsEmpty());
}

TEST_F(FacadeTest, DeletedVrfSendsSetVrfZero) {
  DhcpRelayIntf intf("r1");
  intf.SetVrfDeleted();
  Delete(intf);
  EXPECT_THAT(client_->calls, ElementsAre("SetVrf r1 0"));
}

TEST_F(FacadeTest, CommandsOfOtherKindsAreIgnored) {
  DhcpDumpRequest request;
  DhcpDumpCancel cancel;
  facade_.HandleCommand(&request);
  facade_.HandleCommand(&cancel);
  facade_.HandleCommand(nullptr);
  EXPECT_THAT(client_->calls, IsEmpty());
  EXPECT_THAT(log_.lines, IsEmpty());
}

TEST_F(FacadeTest, DumpCallbacksBecomeCommandsForTheOthers) {
  Receiver other(controller_);
  facade_.OnDumpRequest();
  facade_.OnDumpCancel();
  EXPECT_THAT(journal_.StartingWith("receiver"),
              ElementsAre("receiver: dump request", "receiver: dump cancel"));
}

TEST_F(FacadeTest, AnswerToADumpRequestArrivesInsideTheCall) {
  Receiver handler(controller_);
  handler.on_command = [&](Command*) {
    DhcpRelayIntf intf("r1");
    intf.AddServerAddr(Ip("10.0.0.1"));
    DhcpRelayIntfCmd answer(intf, false);
    controller_->Notify(&handler, &answer);
  };
  facade_.OnDumpRequest();
  EXPECT_THAT(client_->calls, ElementsAre("AddServer r1 10.0.0.1"));
}

class RefusingController : public Controller {
 public:
  void Notify(Component* sender, Command*) override { senders.push_back(sender); }
  std::vector<Component*> senders;
};

TEST_F(FacadeTest, SendsItsCommandsAsItself) {
  auto controller = std::make_shared<RefusingController>();
  DhcpMgrFacade facade(fakes::Vxmw::Handle(), controller, client_);
  facade.OnDumpRequest();
  facade.OnDumpCancel();
  EXPECT_THAT(controller->senders, ElementsAre(&facade, &facade));
}

TEST_F(FacadeTest, CallbacksWithoutMediatorDoNothing) {
  DhcpMgrFacade alone(fakes::Vxmw::Handle(), nullptr, client_);
  Receiver other(controller_);
  alone.OnDumpRequest();
  alone.OnDumpCancel();
  EXPECT_THAT(other.commands, IsEmpty());
}

TEST_F(FacadeTest, RegistersWithTheMediatorWhileItLives) {
  DhcpRelayIntf intf("r1");
  intf.AddServerAddr(Ip("10.0.0.1"));
  DhcpRelayIntfCmd command(intf, false);
  auto controller = std::make_shared<Controller>();
  {
    DhcpMgrFacade facade(fakes::Vxmw::Handle(), controller, client_);
    controller->Notify(nullptr, &command);
  }
  controller->Notify(nullptr, &command);
  EXPECT_THAT(client_->calls, ElementsAre("AddServer r1 10.0.0.1"));
}

TEST_F(FacadeTest, GivenClientIsKeptAndNoneMade) {
  const long uses = client_.use_count();
  const DhcpMgrFacade facade(fakes::Vxmw::Handle(), controller_, client_);
  EXPECT_THAT(journal_.entries(), IsEmpty());
  EXPECT_EQ(client_.use_count(), uses + 1);
}

TEST_F(FacadeTest, EmptyClientIsReplacedByOneThatCallsTheFacadeBack) {
  DhcpMgrFacade facade(fakes::Vxmw::Handle(), controller_, nullptr);
  EXPECT_EQ(dhcp_user_.mw, fakes::Vxmw::Handle());
  EXPECT_EQ(dhcp_user_.callbacks, static_cast<dhcp_relay::DhcpUser::CallbackIf*>(&facade));
  DhcpRelayIntf intf("r2");
  intf.SetVrfDeleted();
  DhcpRelayIntfCmd command(intf, true);
  facade.HandleCommand(&command);
  EXPECT_THAT(journal_.StartingWith("DhcpUser::"), ElementsAre("DhcpUser::SetVrf r2 0"));
}

class ListedController : public Controller {
 public:
  std::size_t size() const { return components_.size(); }
};

TEST_F(FacadeTest, ClientGoesWhileTheFacadeIsRegisteredAndCanBeCalledBack) {
  auto controller = std::make_shared<ListedController>();
  auto facade = std::make_unique<DhcpMgrFacade>(fakes::Vxmw::Handle(), controller, nullptr);
  Receiver other(controller);
  std::size_t registered = 0;
  dhcp_user_.on_destroy = [&] {
    dhcp_user_.callbacks->OnDumpCancel();
    registered = controller->size();
  };
  journal_.Clear();
  facade.reset();
  EXPECT_THAT(journal_.entries(), ElementsAre("~DhcpUser", "receiver: dump cancel"));
  EXPECT_EQ(registered, 2U);
  EXPECT_EQ(controller->size(), 1U);
  dhcp_user_.on_destroy = nullptr;
}

TEST_F(FacadeTest, ClientSharedWithAnotherOwnerStays) {
  auto shared = std::make_shared<fakes::ClientDouble>();
  {
    const DhcpMgrFacade facade(fakes::Vxmw::Handle(), controller_, shared);
  }
  EXPECT_EQ(shared.use_count(), 1);
  EXPECT_THAT(journal_.StartingWith("~"), IsEmpty());
}

}  // namespace
}  // namespace dhcp_relay_app
