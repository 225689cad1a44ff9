// The state of the relay as answers of the control protocol.

#ifndef DHCP_MANAGER_CONTROL_STATE_WRITER_H_
#define DHCP_MANAGER_CONTROL_STATE_WRITER_H_

#include <deque>
#include <string>

#include "dhcp_manager/table/relay_state.h"

namespace dhcp_manager {

// Serialized control::Reply messages, the last of them marked.
std::deque<std::string> WriteState(const RelayState& relay);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_STATE_WRITER_H_
