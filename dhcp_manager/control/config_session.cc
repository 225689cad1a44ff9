#include "dhcp_manager/control/config_session.h"

#include <string>

#include "base/packet_socket.h"

namespace dhcp_manager {

namespace wire = dhcp_relay::wire;

std::optional<wire::ManagerMessage> ConfigSession::Handle(const wire::ClientMessage& message) {
  if (greeted_ == message.has_hello())
    throw base::ConnectionError("a greeting is missing or repeated");
  switch (message.body_case()) {
    case wire::ClientMessage::kHello:
      return Greet(message.hello());
    case wire::ClientMessage::kCalls:
      Apply(message.calls());
      break;
    case wire::ClientMessage::kDumpBegin:
      if (!resync_.BeginDump(message.dump_begin().id())) {
        throw base::ConnectionError("a dump was begun that was not asked for");
      }
      break;
    case wire::ClientMessage::kDumpComplete:
      if (!resync_.CompleteDump(message.dump_complete().id())) {
        throw base::ConnectionError("a dump was completed that was not begun");
      }
      break;
    case wire::ClientMessage::kCommitsPending:
      if (!resync_.SetCommitsPending(message.commits_pending())) {
        throw base::ConnectionError("commits were said to be pending before a dump was complete");
      }
      break;
    case wire::ClientMessage::BODY_NOT_SET:
      throw base::ConnectionError("the daemon sent a message that is not known here");
  }
  return std::nullopt;
}

wire::ManagerMessage ConfigSession::Greet(const wire::Hello& hello) {
  if (hello.version() != wire::kVersion) {
    throw base::ConnectionError("the daemon speaks version " + std::to_string(hello.version()) +
                                " of the protocol, not " + std::to_string(wire::kVersion));
  }
  greeted_ = true;
  wire::ManagerMessage request;
  request.mutable_dump_request()->set_id(resync_.Connected());
  return request;
}

void ConfigSession::Apply(const wire::Calls& calls) {
  if (calls.commit_continues()) resync_.BeginCommit();
  for (const wire::Call& call : calls.calls()) {
    if (const auto fault = wire::Fault(call)) throw base::ConnectionError(*fault);
    journal_.Add(call);
    resync_.Apply(call);
  }
  if (!calls.commit_continues()) resync_.EndCommit();
}

}  // namespace dhcp_manager
