// The manager's command line.

#ifndef DHCP_MANAGER_COMMAND_LINE_H_
#define DHCP_MANAGER_COMMAND_LINE_H_

#include <filesystem>
#include <string>

#include "dhcp_manager/datapath/flood_guards.h"
#include "dhcp_manager/kernel/link_messages.h"
#include "dhcp_manager/table/trust.h"

namespace dhcp_manager {

inline constexpr char kOperators[] = "dhcp-operators";

struct CommandLine {
  std::filesystem::path runtime_directory;
  std::string journal;      // empty: none
  std::string user;         // to run as; empty: the caller; without keep_rights
  std::string daemon_user;  // whom the daemon may run as, besides root and `user`; empty: nobody
  bool keep_rights = false;
  // Group of those who may ask for the state; empty: kOperators if there is such a group.
  std::string operators;
  FloodLimits flood_limits;
  Trust trust;
  VrfDevices vrf_devices;
};

// Ends the process with status 2 for an invalid command line, and with 0 after --help and
// --version.
CommandLine ParseCommandLine(int argc, char** argv);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_COMMAND_LINE_H_
