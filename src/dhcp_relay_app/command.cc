#include "src/dhcp_relay_app/command.h"

namespace dhcp_relay_app {

// Out of line, so that each class has its type information in this one object file.
Command::~Command() = default;
DhcpRelayIntfCmd::~DhcpRelayIntfCmd() = default;
DhcpDumpRequest::~DhcpDumpRequest() = default;
DhcpDumpCancel::~DhcpDumpCancel() = default;

}  // namespace dhcp_relay_app
