#include "dhcp_manager/control/control_session.h"

#include "base/packet_socket.h"
#include "dhcp_manager/control/state_answer.h"
#include "dhcp_manager/control/status_answer.h"
#include "dhcp_manager/control/table_answer.h"

namespace dhcp_manager {

namespace control = dhcp_relay::control;

std::unique_ptr<Answer> ControlSession::Take(const control::Request& request) {
  switch (request.kind()) {
    case control::Request::TABLE:
      return std::make_unique<TableAnswer>(resync_);
    case control::Request::STATUS:
      relay_.CollectCounters();
      return std::make_unique<StatusAnswer>(resync_, journal_, relay_);
    case control::Request::STATE:
      relay_.CollectCounters();
      return std::make_unique<StateAnswer>(relay_);
    case control::Request::CLEAR_COUNTERS:
      ClearCounters();
      return std::make_unique<StatusAnswer>(resync_, journal_, relay_);
    default:
      throw base::ConnectionError("it asks for something that is not known here");
  }
}

void ControlSession::ClearCounters() {
  if (!trusted_) throw base::ConnectionError("another user may not clear the counters");
  relay_.ClearCounters();
}

}  // namespace dhcp_manager
