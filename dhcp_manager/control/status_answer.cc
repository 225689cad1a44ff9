#include "dhcp_manager/control/status_answer.h"

#include "protocol/control/control.pb.h"

namespace dhcp_manager {

std::optional<std::size_t> StatusAnswer::WriteNext(dhcp_relay::control::Reply& reply) {
  if (reply.has_status()) return std::nullopt;
  dhcp_relay::control::Status& status = *reply.mutable_status();
  status.set_connected(resync_.state() != Resync::State::kDisconnected);
  status.set_in_sync(resync_.in_sync());
  status.set_calls(resync_.calls());
  status.set_dumps(resync_.dumps());
  status.set_journal_dropped(journal_.dropped());
  status.set_journal_fault(journal_.fault());
  return status.ByteSizeLong();
}

}  // namespace dhcp_manager
