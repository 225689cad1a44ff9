#include "dhcp_manager/control/status_answer.h"

#include <utility>

#include "dhcp_manager/control/kernel_drops.h"
#include "protocol/control/control.pb.h"

namespace dhcp_manager {

namespace control = dhcp_relay::control;

StatusAnswer::Size StatusAnswer::WriteNext(control::Reply& reply) {
  if (!std::exchange(has_own_, true)) return WriteOwn(*reply.mutable_status());
  if (const auto size = WriteMissing(reply)) return size;
  return WriteCompeting(reply);
}

std::size_t StatusAnswer::WriteOwn(control::Status& status) {
  status.set_connected(resync_.state() != Resync::State::kDisconnected);
  status.set_in_sync(resync_.in_sync());
  status.set_calls(resync_.calls());
  status.set_dumps(resync_.dumps());
  status.set_journal_dropped(journal_.dropped());
  status.set_journal_fault(journal_.fault());
  Fill(relay_.counters().kernel_drops(), *status.mutable_kernel_drops());
  return status.ByteSizeLong();
}

StatusAnswer::Size StatusAnswer::WriteMissing(control::Reply& reply) {
  if (missing_ == faults_.missing.size()) return std::nullopt;
  const MissingSocket& socket = faults_.missing[missing_++];
  control::MissingSocket& message = *reply.mutable_status()->add_missing_sockets();
  message.set_vrf_device(socket.vrf_device);
  message.set_reason(socket.reason);
  return message.ByteSizeLong();
}

StatusAnswer::Size StatusAnswer::WriteCompeting(control::Reply& reply) {
  if (competing_ == faults_.competing.size()) return std::nullopt;
  const CompetingSocket& socket = faults_.competing[competing_++];
  control::CompetingSocket& message = *reply.mutable_status()->add_competing_sockets();
  message.set_vrf_device(socket.vrf_device);
  message.set_address(socket.address.host_order());
  message.set_user(socket.user);
  message.set_inode(socket.inode);
  return message.ByteSizeLong();
}

}  // namespace dhcp_manager
