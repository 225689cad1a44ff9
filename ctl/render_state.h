// How the command prints what the relaying is doing. As JSON: one line, without the newline.

#ifndef CTL_RENDER_STATE_H_
#define CTL_RENDER_STATE_H_

#include <string>

#include "connection.h"

namespace relayctl {

std::string InstancesAsJson(const RelayState& state);
std::string InstancesAsText(const RelayState& state);

std::string InterfacesAsJson(const RelayState& state);
std::string InterfacesAsText(const RelayState& state);

// Every counter, zeros too; what became of the messages adds up to those received.
std::string CountersAsJson(const RelayState& state);
// What is not zero.
std::string CountersAsText(const RelayState& state);

std::string ServersAsJson(const RelayState& state);
std::string ServersAsText(const RelayState& state);

}  // namespace relayctl

#endif  // CTL_RENDER_STATE_H_
