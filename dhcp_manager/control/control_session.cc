#include "dhcp_manager/control/control_session.h"

#include "base/packet_socket.h"
#include "dhcp_manager/control/state_writer.h"
#include "dhcp_manager/control/table_writer.h"

namespace dhcp_manager {

namespace control = dhcp_relay::control;

std::deque<std::string> ControlSession::Answer(const control::Request& request) {
  switch (request.kind()) {
    case control::Request::TABLE:
      return WriteTable(resync_.table());
    case control::Request::STATUS:
      return {Status()};
    case control::Request::STATE:
      return WriteState(relay_);
    case control::Request::CLEAR_COUNTERS:
      ClearCounters();
      return {Status()};
    default:
      throw base::ConnectionError("it asks for something that is not known here");
  }
}

void ControlSession::ClearCounters() {
  if (!trusted_) throw base::ConnectionError("another user may not clear the counters");
  relay_.ClearCounters();
}

std::string ControlSession::Status() const {
  control::Reply reply;
  control::Status& status = *reply.mutable_status();
  status.set_connected(resync_.state() != Resync::State::kDisconnected);
  status.set_in_sync(resync_.state() == Resync::State::kInSync);
  status.set_calls(resync_.calls());
  status.set_dumps(resync_.dumps());
  reply.set_last(true);
  return reply.SerializeAsString();
}

}  // namespace dhcp_manager
