// How the command prints the relay table.

#ifndef CTL_RENDER_TABLE_H_
#define CTL_RENDER_TABLE_H_

#include <string>
#include <vector>

#include "protocol/control/control.pb.h"

namespace relayctl {

// One line of JSON, without the newline: {"instances":[...]}; null for what was never set.
std::string TableAsJson(const std::vector<dhcp_relay::control::Instance>& table);

// For people.
std::string TableAsText(const std::vector<dhcp_relay::control::Instance>& table);

}  // namespace relayctl

#endif  // CTL_RENDER_TABLE_H_
