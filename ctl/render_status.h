// How the command prints whether the relay follows its configuration.

#ifndef CTL_RENDER_STATUS_H_
#define CTL_RENDER_STATUS_H_

#include <optional>
#include <string>

#include "protocol/control/control.pb.h"
#include "protocol/saving/save_status.h"

namespace relayctl {

// One line of JSON, without the newline. Without a status, as when no manager answers, only whether
// commits are saved.
std::string StatusAsJson(const std::optional<dhcp_relay::control::Status>& status,
                         const dhcp_relay::saving::SaveStatus& commits);

// For people.
std::string StatusAsText(const std::optional<dhcp_relay::control::Status>& status,
                         const dhcp_relay::saving::SaveStatus& commits);

}  // namespace relayctl

#endif  // CTL_RENDER_STATUS_H_
