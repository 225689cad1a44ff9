#include "daemon_session.h"

#include <string>

namespace dhcp_manager {

namespace wire = dhcp_relay::wire;

std::optional<wire::ManagerMessage> DaemonSession::Handle(const wire::ClientMessage& message) {
  if (greeted_ == message.has_hello()) throw wire::WireError("a greeting is missing or repeated");
  switch (message.body_case()) {
    case wire::ClientMessage::kHello:
      return Greet(message.hello());
    case wire::ClientMessage::kCalls:
      Apply(message.calls());
      break;
    case wire::ClientMessage::kDumpBegin:
      if (!resync_.BeginDump(message.dump_begin().id())) {
        throw wire::WireError("a dump was begun that was not asked for");
      }
      break;
    case wire::ClientMessage::kDumpComplete:
      if (!resync_.CompleteDump(message.dump_complete().id())) {
        throw wire::WireError("a dump was completed that was not begun");
      }
      break;
    case wire::ClientMessage::BODY_NOT_SET:
      throw wire::WireError("the daemon sent a message that is not known here");
  }
  return std::nullopt;
}

wire::ManagerMessage DaemonSession::Greet(const wire::Hello& hello) {
  if (hello.version() != wire::kVersion) {
    throw wire::WireError("the daemon speaks version " + std::to_string(hello.version()) +
                          " of the protocol, not " + std::to_string(wire::kVersion));
  }
  greeted_ = true;
  wire::ManagerMessage request;
  request.mutable_dump_request()->set_id(resync_.Connected());
  return request;
}

void DaemonSession::Apply(const wire::Calls& calls) {
  for (const wire::Call& call : calls.calls()) {
    if (const auto fault = wire::Fault(call)) throw wire::WireError(*fault);
    journal_.Add(call);
    resync_.Apply(call);
  }
}

}  // namespace dhcp_manager
