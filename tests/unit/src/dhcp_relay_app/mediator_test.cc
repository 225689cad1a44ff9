#include "src/dhcp_relay_app/mediator.h"

#include <optional>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MediatorTest : public DaemonTest {
 protected:
  std::shared_ptr<Controller> controller_ = std::make_shared<Controller>();
  DhcpDumpRequest request_;
};

TEST_F(MediatorTest, DeliversToAllButTheSenderInOrderOfRegistration) {
  Receiver first(controller_, "first");
  Receiver sender(controller_, "sender");
  Receiver third(controller_, "third");
  controller_->Notify(&sender, &request_);
  EXPECT_THAT(journal_.entries(), ElementsAre("first: dump request", "third: dump request"));
}

TEST_F(MediatorTest, UnregisteredSenderReachesEveryComponentAndGetsNothing) {
  Receiver first(controller_, "first");
  Receiver second(controller_, "second");
  Receiver outsider(nullptr, "outsider");
  controller_->Notify(&outsider, &request_);
  EXPECT_THAT(journal_.entries(), ElementsAre("first: dump request", "second: dump request"));
}

TEST_F(MediatorTest, SenderMayBeNull) {
  Receiver first(controller_, "first");
  controller_->Notify(nullptr, &request_);
  EXPECT_THAT(journal_.entries(), ElementsAre("first: dump request"));
}

TEST_F(MediatorTest, CommandOfTheOnlyComponentReachesNobody) {
  Receiver only(controller_);
  controller_->Notify(&only, &request_);
  EXPECT_THAT(only.commands, IsEmpty());
}

TEST_F(MediatorTest, HandsOverTheCommandItselfBeforeItReturns) {
  Receiver receiver(controller_);
  controller_->Notify(nullptr, &request_);
  EXPECT_THAT(receiver.commands, ElementsAre(&request_));
}

TEST_F(MediatorTest, HandsOverNullToo) {
  Receiver receiver(controller_);
  controller_->Notify(nullptr, nullptr);
  EXPECT_THAT(receiver.commands, ElementsAre(nullptr));
}

TEST_F(MediatorTest, ReceiverMayNotifyFromInsideItsDelivery) {
  Receiver asking(controller_, "asking");
  Receiver answering(controller_, "answering");
  Receiver last(controller_, "last");
  DhcpRelayIntfCmd answer(DhcpRelayIntf("r1"), false);
  answering.on_command = [&](Command* command) {
    if (dynamic_cast<DhcpDumpRequest*>(command) != nullptr) {
      controller_->Notify(&answering, &answer);
    }
  };
  controller_->Notify(&asking, &request_);
  EXPECT_THAT(journal_.entries(), ElementsAre("answering: dump request", "asking: set r1",
                                              "last: set r1", "last: dump request"));
}

TEST_F(MediatorTest, DestroyedComponentIsNotReached) {
  Receiver staying(controller_, "staying");
  {
    const Receiver leaving(controller_, "leaving");
  }
  controller_->Notify(nullptr, &request_);
  EXPECT_THAT(journal_.entries(), ElementsAre("staying: dump request"));
}

TEST_F(MediatorTest, ComponentRegisteredTwiceReceivesTwice) {
  Receiver twice(controller_, "twice");
  controller_->Register(&twice);
  controller_->Notify(nullptr, &request_);
  EXPECT_THAT(journal_.entries(), ElementsAre("twice: dump request", "twice: dump request"));
}

TEST_F(MediatorTest, DestructionRemovesEveryRegistrationOfTheComponent) {
  Receiver staying(controller_, "staying");
  {
    Receiver twice(controller_, "twice");
    controller_->Register(&twice);
    controller_->Register(&staying);
    controller_->Register(&twice);
  }
  controller_->Notify(nullptr, &request_);
  EXPECT_THAT(journal_.entries(), ElementsAre("staying: dump request", "staying: dump request"));
}

TEST_F(MediatorTest, ComponentKeepsItsMediatorAlive) {
  std::weak_ptr<Controller> observer = controller_;
  std::optional<Receiver> component(std::in_place, controller_);
  controller_.reset();
  EXPECT_FALSE(observer.expired());
  component.reset();
  EXPECT_TRUE(observer.expired());
}

TEST_F(MediatorTest, ComponentWithoutMediatorWorksOnItsOwn) {
  Receiver alone(nullptr);
  alone.HandleCommand(&request_);
  EXPECT_THAT(alone.commands, ElementsAre(&request_));
}

TEST_F(MediatorTest, DestroyingTheMediatorLeavesComponentsAlone) {
  Receiver component(nullptr);
  {
    Controller short_lived;
    short_lived.Register(&component);
  }
  component.HandleCommand(&request_);
  EXPECT_THAT(component.commands, ElementsAre(&request_));
}

}  // namespace
}  // namespace dhcp_relay_app
