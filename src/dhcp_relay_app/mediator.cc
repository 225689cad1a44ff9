#include "src/dhcp_relay_app/mediator.h"

#include <utility>

namespace dhcp_relay_app {

void Controller::Notify(Component* sender, Command* command) {
  for (Component* component : components_) {
    if (component != sender) component->HandleCommand(command);
  }
}

Component::Component(std::shared_ptr<Mediator> mediator) : mediator_(std::move(mediator)) {
  if (mediator_) mediator_->Register(this);
}

Component::~Component() {
  if (mediator_) mediator_->Unregister(this);
}

}  // namespace dhcp_relay_app
