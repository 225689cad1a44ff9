// The state of the relay as an answer of the control protocol.

#ifndef DHCP_MANAGER_CONTROL_STATE_ANSWER_H_
#define DHCP_MANAGER_CONTROL_STATE_ANSWER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dhcp_manager/control/answer.h"
#include "dhcp_manager/table/relay_state.h"

namespace dhcp_manager {

// The interfaces of an instance follow its servers, so that no interface comes without its
// instance. An instance goes on in the next reply under its name when it does not fit one.
class StateAnswer final : public Answer {
 public:
  // `relay` must outlive the answer.
  explicit StateAnswer(const RelayState& relay) : Answer(relay.version()), relay_(relay) {}

 private:
  using Size = std::optional<std::size_t>;

  Size WriteNext(dhcp_relay::control::Reply& reply) override;
  std::uint64_t Version() const override { return relay_.version(); }

  std::size_t WriteOwn(const RelayInstance& instance, dhcp_relay::control::Reply& reply);
  // These write the part that follows the one written last.
  Size WritePart(dhcp_relay::control::Reply& reply);
  Size WriteServer(dhcp_relay::control::Reply& reply);
  Size WriteInterface(dhcp_relay::control::Reply& reply);
  Size WriteUnmatched(dhcp_relay::control::Reply& reply);
  // The message of the instance in hand.
  dhcp_relay::control::RelayInstance& Message(dhcp_relay::control::Reply& reply) const;

  const RelayState& relay_;
  // Names of what was written last; empty, which no name is, before the first.
  std::string instance_;
  std::string interface_;
  std::optional<nettypes::IPv4Addr> server_;
  bool has_unmatched_ = false;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_STATE_ANSWER_H_
