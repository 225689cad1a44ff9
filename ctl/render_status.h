// How the command prints whether the relay follows its configuration.

#ifndef CTL_RENDER_STATUS_H_
#define CTL_RENDER_STATUS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "protocol/control/control.pb.h"
#include "protocol/saving/save_status.h"

namespace relayctl {

// The process that has the socket with an inode open; empty when it is not known.
using SocketOwner = std::function<std::string(std::uint32_t inode)>;

// One line of JSON, without the newline. Without a status, as when no manager answers, only whether
// commits are saved.
std::string StatusAsJson(const std::optional<dhcp_relay::control::Status>& status,
                         const dhcp_relay::saving::SaveStatus& commits, const SocketOwner& owner);

// For people.
std::string StatusAsText(const std::optional<dhcp_relay::control::Status>& status,
                         const dhcp_relay::saving::SaveStatus& commits, const SocketOwner& owner);

}  // namespace relayctl

#endif  // CTL_RENDER_STATUS_H_
