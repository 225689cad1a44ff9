#include <unistd.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "base/service/log.h"
#include "base/service/program.h"
#include "base/system_error.h"
#include "dhcp_manager/command_line.h"
#include "dhcp_manager/control/config_server.h"
#include "dhcp_manager/control/control_server.h"
#include "dhcp_manager/control/socket_file.h"
#include "dhcp_manager/kernel/link_socket.h"
#include "dhcp_manager/privileges.h"
#include "dhcp_manager/relay.h"
#include "dhcp_manager/system_calls.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/control/socket_name.h"
#include "protocol/wire/wire.h"

namespace {

constexpr char kApplication[] = "dhcp-manager";

using dhcp_manager::CommandLine;
using dhcp_manager::User;

// Whatever the umask is: the sockets in it keep others out.
constexpr auto kDirectoryMode = static_cast<std::filesystem::perms>(0755);

void MakeDirectory(const std::filesystem::path& directory) {
  if (std::filesystem::create_directories(directory)) {
    std::filesystem::permissions(directory, kDirectoryMode);
  }
}

std::optional<User> UserOf(const std::string& name) {
  if (name.empty()) return std::nullopt;
  return dhcp_manager::FindUser(name);
}

// The directory of the sockets is the user's, so that the daemon knows who answers there.
void GiveUpRights(const CommandLine& line, const std::optional<User>& user) {
  if (line.keep_rights) return;
  if (!user) {
    dhcp_manager::GiveUpPrivileges();
    return;
  }
  if (chown(line.runtime_directory.c_str(), user->id, user->group) != 0) {
    base::ThrowSystemError("cannot give away " + line.runtime_directory.string());
  }
  dhcp_manager::GiveUpPrivileges(*user);
}

std::optional<uid_t> IdOf(const std::optional<User>& user) {
  return user ? std::optional(user->id) : std::nullopt;
}

std::optional<gid_t> GroupOf(const std::optional<User>& user) {
  return user ? std::optional(user->group) : std::nullopt;
}

std::optional<gid_t> OperatorsOf(const CommandLine& line) {
  if (!line.operators.empty()) {
    const auto group = dhcp_manager::FindGroup(line.operators);
    if (!group) throw std::runtime_error("there is no group " + line.operators);
    return group;
  }
  // Only root can give a file to any group.
  if (geteuid() != 0) return std::nullopt;
  return dhcp_manager::FindGroup(dhcp_manager::kOperators);
}

int Serve(vxmw_t* mw, const CommandLine& line) {
  MakeDirectory(line.runtime_directory);
  const std::optional<User> user = UserOf(line.user);
  dhcp_manager::Journal journal = line.journal.empty()
                                      ? dhcp_manager::Journal()
                                      : dhcp_manager::Journal(line.journal, IdOf(user));
  dhcp_manager::Sockets sockets;
  auto link_socket = dhcp_manager::OpenLinkSocket();
  const std::optional<User> daemon = UserOf(line.daemon_user);
  dhcp_manager::SocketFile control_socket(line.runtime_directory / dhcp_relay::control::kSocketName,
                                          {.owner = IdOf(user), .group = OperatorsOf(line)});
  dhcp_manager::SocketFile config_socket(line.runtime_directory / dhcp_relay::wire::kSocketName,
                                         {.owner = IdOf(user), .group = GroupOf(daemon)});
  GiveUpRights(line, user);
  dhcp_manager::Resync resync;
  dhcp_manager::Relay relay(mw, std::move(sockets), std::move(link_socket), resync,
                            line.vrf_devices, line.flood_limits, line.trust);
  const dhcp_manager::ControlServer control_server(mw, std::move(control_socket), resync, journal,
                                                   relay);
  const dhcp_manager::ConfigServer config_server(mw, std::move(config_socket), resync, journal,
                                                 IdOf(daemon));
  const vxmw::HangupWatch hangup(mw, [&journal] {
    if (const auto reason = journal.Reopen()) base::LogError(*reason);
  });
  if (!line.keep_rights && VX_SANITIZED == 0) dhcp_manager::FilterSystemCalls();
  return base::RunLoop(mw);
}

}  // namespace

int main(int argc, char** argv) {
  const CommandLine line = dhcp_manager::ParseCommandLine(argc, argv);
  return base::RunProgram(kApplication, [&line](vxmw_t* mw) { return Serve(mw, line); });
}
