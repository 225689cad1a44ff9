#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "control_server.h"
#include "daemon_server.h"
#include "journal.h"
#include "log.h"
#include "options.h"
#include "privileges.h"
#include "relay.h"
#include "resync.h"
#include "vxmw/vxmw.h"

namespace {

constexpr char kApplication[] = "dhcp-manager";

// The directory of the sockets is the user's, so that the daemon knows who answers there.
void BecomeUser(const dhcp_manager::CommandLine& line) {
  if (line.user.empty()) return;
  const dhcp_manager::User user = dhcp_manager::FindUser(line.user);
  if (chown(line.runtime_directory.c_str(), user.id, user.group) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            "cannot give away " + line.runtime_directory.string());
  }
  dhcp_manager::GiveUpPrivileges(user);
}

int Serve(vxmw_t* mw, const dhcp_manager::CommandLine& line) {
  std::filesystem::create_directories(line.runtime_directory);
  dhcp_manager::Journal journal =
      line.journal.empty() ? dhcp_manager::Journal() : dhcp_manager::Journal(line.journal);
  dhcp_manager::Sockets sockets;
  BecomeUser(line);
  dhcp_manager::Resync resync;
  dhcp_manager::Relay relay(mw, std::move(sockets), resync, line.vrf_devices, line.flood_guard);
  const dhcp_manager::ControlServer control_server(mw, line.runtime_directory, resync, relay);
  const dhcp_manager::DaemonServer daemon_server(mw, line.runtime_directory, resync, journal);
  bool go_on = true;
  return vxmw_loop_while_timeout(mw, &go_on, 0) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  const dhcp_manager::CommandLine line = dhcp_manager::ParseCommandLine(argc, argv);
  vxmw_t* mw = vxmw_init(kApplication);
  if (mw == nullptr) {
    vxmw_gen_fault(1, __func__, __FILE__, __LINE__, "cannot attach to the middleware");
    return EXIT_FAILURE;
  }
  int status = EXIT_FAILURE;
  try {
    vxmw_trace_init(mw, kApplication);
    dhcp_manager::StartLog(kApplication);
    status = Serve(mw, line);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dhcp-manager: %s\n", error.what());
    vxmw_gen_fault(0, __func__, __FILE__, __LINE__, error.what());
  }
  vxmw_finish(&mw);
  return status;
}
