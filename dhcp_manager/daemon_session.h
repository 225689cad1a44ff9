// What one connected daemon says, and what it is answered. Knows no socket.

#ifndef DHCP_MANAGER_DAEMON_SESSION_H_
#define DHCP_MANAGER_DAEMON_SESSION_H_

#include <optional>

#include "journal.h"
#include "resync.h"
#include "wire.h"

namespace dhcp_manager {

class DaemonSession {
 public:
  // `resync` and `journal` must outlive the session.
  DaemonSession(Resync& resync, Journal& journal) : resync_(resync), journal_(journal) {}

  // Takes one message, and returns the answer if there is one. Throws dhcp_relay::wire::WireError
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

#endif  // DHCP_MANAGER_DAEMON_SESSION_H_
