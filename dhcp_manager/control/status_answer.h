// The status of the manager as an answer of the control protocol.

#ifndef DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_
#define DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "dhcp_manager/control/answer.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/relay_state.h"
#include "dhcp_manager/table/resync.h"
#include "dhcp_manager/table/socket_faults.h"

namespace dhcp_manager {

// What is wrong with sockets is that of the moment when the answer was begun.
class StatusAnswer final : public Answer {
 public:
  // `resync`, `journal` and `relay` must outlive the answer.
  StatusAnswer(const Resync& resync, const Journal& journal, RelayState& relay)
      : Answer(resync.version()),
        resync_(resync),
        journal_(journal),
        relay_(relay),
        faults_(relay.FindSocketFaults()) {}

 private:
  using Size = std::optional<std::size_t>;

  Size WriteNext(dhcp_relay::control::Reply& reply) override;
  std::uint64_t Version() const override { return resync_.version(); }

  std::size_t WriteOwn(dhcp_relay::control::Status& status);
  Size WriteMissing(dhcp_relay::control::Reply& reply);
  Size WriteCompeting(dhcp_relay::control::Reply& reply);

  const Resync& resync_;
  const Journal& journal_;
  const RelayState& relay_;
  const SocketFaults faults_;
  bool has_own_ = false;
  // How many of the faults are written.
  std::size_t missing_ = 0;
  std::size_t competing_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_
