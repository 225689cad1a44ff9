// What one operator's program asks, and what it is answered. Knows no socket.

#ifndef DHCP_MANAGER_CONTROL_CONTROL_SESSION_H_
#define DHCP_MANAGER_CONTROL_CONTROL_SESSION_H_

#include <memory>

#include "dhcp_manager/control/answer.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/relay_state.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/control/control.pb.h"

namespace dhcp_manager {

class ControlSession {
 public:
  // Only a trusted peer may clear the counters. The others must outlive the session.
  ControlSession(const Resync& resync, const Journal& journal, RelayState& relay, bool trusted)
      : resync_(resync), journal_(journal), relay_(relay), trusted_(trusted) {}

  // The answer to a request, of which nothing is written yet. Throws base::ConnectionError when the
  // connection is to be closed for it.
  std::unique_ptr<Answer> Take(const dhcp_relay::control::Request& request);

 private:
  void ClearCounters();

  const Resync& resync_;
  const Journal& journal_;
  RelayState& relay_;
  const bool trusted_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_CONTROL_SESSION_H_
