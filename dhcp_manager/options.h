// The manager's command line.

#ifndef DHCP_MANAGER_OPTIONS_H_
#define DHCP_MANAGER_OPTIONS_H_

#include <filesystem>
#include <optional>
#include <string>

#include "link_watcher.h"
#include "token_bucket.h"

namespace dhcp_manager {

struct CommandLine {
  std::filesystem::path runtime_directory;
  std::string journal;  // empty: none
  std::string user;     // whose rights it runs with; empty: its own
  std::optional<RateLimit> flood_guard;
  VrfStandIns vrf_devices;
};

// Ends the process with status 2 for a command line that is not understood, and with 0 after --help
// and --version.
CommandLine ParseCommandLine(int argc, char** argv);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_OPTIONS_H_
