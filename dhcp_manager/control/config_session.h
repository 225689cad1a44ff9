// What one connected daemon says, and what it is answered. Knows no socket.

#ifndef DHCP_MANAGER_CONTROL_CONFIG_SESSION_H_
#define DHCP_MANAGER_CONTROL_CONFIG_SESSION_H_

#include <optional>

#include "base/packet_socket.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {

class ConfigSession {
 public:
  // `resync` and `journal` must outlive the session.
  ConfigSession(Resync& resync, Journal& journal) : resync_(resync), journal_(journal) {}

  // Takes one message, and returns the answer if there is one. Throws base::ConnectionError
  // when the connection is to be closed for it; the calls before the one at fault have been
  // applied.
  std::optional<dhcp_relay::wire::ManagerMessage> Handle(
      const dhcp_relay::wire::ClientMessage& message);

 private:
  dhcp_relay::wire::ManagerMessage Greet(const dhcp_relay::wire::Hello& hello);
  void Apply(const dhcp_relay::wire::Calls& calls);

  Resync& resync_;
  Journal& journal_;
  bool greeted_ = false;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_CONFIG_SESSION_H_
