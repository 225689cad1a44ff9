// The state of the relaying, as replies of bounded size.

#ifndef DHCP_MANAGER_CONTROL_STATE_WRITER_H_
#define DHCP_MANAGER_CONTROL_STATE_WRITER_H_

#include <deque>
#include <string>

#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"
#include "protocol/control/control.pb.h"

namespace dhcp_manager {

// One message per service and per port, by instance and then by name.
control::Service ServiceState(const RelayInstance& instance, const Counters& counters);
control::Port PortStateOf(const RelayInterface& port, const Counters& counters);
control::Strays StrayState(const Counters& counters);

// Serialized control::Reply messages, the last of them marked.
std::deque<std::string> WriteState(const Forwarding& forwarding, const Counters& counters);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_STATE_WRITER_H_
