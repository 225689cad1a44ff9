#include <unistd.h>

#include <filesystem>
#include <utility>

#include <vxmw/vxmw.h>

#include "base/service/program.h"
#include "base/system_error.h"
#include "dhcp_manager/command_line.h"
#include "dhcp_manager/control/config_server.h"
#include "dhcp_manager/control/control_server.h"
#include "dhcp_manager/privileges.h"
#include "dhcp_manager/relay.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"

namespace {

constexpr char kApplication[] = "dhcp-manager";

// The directory of the sockets is the user's, so that the daemon knows who answers there.
void GiveUpRights(const dhcp_manager::CommandLine& line) {
  if (line.keep_rights) return;
  if (line.user.empty()) {
    dhcp_manager::GiveUpPrivileges();
    return;
  }
  const dhcp_manager::User user = dhcp_manager::FindUser(line.user);
  if (chown(line.runtime_directory.c_str(), user.id, user.group) != 0) {
    base::ThrowSystemError("cannot give away " + line.runtime_directory.string());
  }
  dhcp_manager::GiveUpPrivileges(user);
}

int Serve(vxmw_t* mw, const dhcp_manager::CommandLine& line) {
  std::filesystem::create_directories(line.runtime_directory);
  dhcp_manager::Journal journal =
      line.journal.empty() ? dhcp_manager::Journal() : dhcp_manager::Journal(line.journal);
  dhcp_manager::Sockets sockets;
  GiveUpRights(line);
  dhcp_manager::Resync resync;
  dhcp_manager::Relay relay(mw, std::move(sockets), resync, line.vrf_devices, line.flood_guard,
                            line.trust);
  const dhcp_manager::ControlServer control_server(mw, line.runtime_directory, resync, relay);
  const dhcp_manager::ConfigServer config_server(mw, line.runtime_directory, resync, journal);
  return base::RunLoop(mw);
}

}  // namespace

int main(int argc, char** argv) {
  const dhcp_manager::CommandLine line = dhcp_manager::ParseCommandLine(argc, argv);
  return base::RunProgram(kApplication, [&line](vxmw_t* mw) { return Serve(mw, line); });
}
