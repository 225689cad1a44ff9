// Routing between the daemon's components, which never hold pointers to each other.

#ifndef SRC_DHCP_RELAY_APP_MEDIATOR_H_
#define SRC_DHCP_RELAY_APP_MEDIATOR_H_

#include <list>
#include <memory>

namespace dhcp_relay_app {

class Command;
class Component;

// Delivers commands between the registered components. All on one thread; no component is made or
// destroyed during a delivery.
class Mediator {
 public:
  Mediator() = default;
  virtual ~Mediator() = default;
  Mediator(const Mediator&) = delete;
  Mediator& operator=(const Mediator&) = delete;

  // Hands `command` to every registered component other than `sender` before it returns. The sender
  // keeps the command; receivers neither keep nor delete it.
  virtual void Notify(Component* sender, Command* command) = 0;

  // A component is reachable between the two, in the order of registration. Unregistering removes
  // every registration of the component.
  void Register(Component* component) { components_.push_back(component); }
  void Unregister(Component* component) { components_.remove(component); }

 protected:
  std::list<Component*> components_;
};

class Controller : public Mediator {
 public:
  void Notify(Component* sender, Command* command) override;
};

// A part of the daemon that sends and receives commands; registered exactly while it lives.
class Component {
 public:
  // An empty `mediator` leaves the component on its own.
  explicit Component(std::shared_ptr<Mediator> mediator);
  virtual ~Component();
  Component(const Component&) = delete;
  Component& operator=(const Component&) = delete;

  // A null command, or one that does not concern this component, is ignored.
  virtual void HandleCommand(Command* command) = 0;

 protected:
  const std::shared_ptr<Mediator>& mediator() const { return mediator_; }

 private:
  std::shared_ptr<Mediator> mediator_;
};

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_MEDIATOR_H_
