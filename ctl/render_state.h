// How the command prints the state of the relay. As JSON: one line, without the newline.

#ifndef CTL_RENDER_STATE_H_
#define CTL_RENDER_STATE_H_

#include <string>

#include "protocol/control/client.h"

namespace relayctl {

std::string InstancesAsJson(const dhcp_relay::control::RelayState& state);
std::string InstancesAsText(const dhcp_relay::control::RelayState& state);

std::string InterfacesAsJson(const dhcp_relay::control::RelayState& state);
std::string InterfacesAsText(const dhcp_relay::control::RelayState& state);

// Every counter, zeros too; the outcomes of the messages add up to those received.
std::string CountersAsJson(const dhcp_relay::control::RelayState& state);
// What is not zero.
std::string CountersAsText(const dhcp_relay::control::RelayState& state);

std::string ServersAsJson(const dhcp_relay::control::RelayState& state);
std::string ServersAsText(const dhcp_relay::control::RelayState& state);

}  // namespace relayctl

#endif  // CTL_RENDER_STATE_H_
