// The daemon's end of the manager: takes one client, asks it for a dump, and applies what it calls.

#ifndef DHCP_MANAGER_CONTROL_CONFIG_SERVER_H_
#define DHCP_MANAGER_CONTROL_CONFIG_SERVER_H_

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <vxmw/event.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/service/log.h"
#include "dhcp_manager/control/config_session.h"
#include "dhcp_manager/control/listener.h"
#include "dhcp_manager/control/socket_file.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {

// Connections that are refused or closed may come fast: so many lines are logged at once, and one
// an interval after that.
inline constexpr double kLoggedDaemons = 10;
inline constexpr std::chrono::seconds kDaemonInterval{10};

// A daemon that says nothing for so long in the middle of a commit is disconnected: the dump after
// its next connect brings the commit.
inline constexpr std::chrono::seconds kCommitPatience{5};

class ConfigServer {
 public:
  // Listens on the daemon's socket for root, this process's user and `daemon_user`. `resync` and
  // `journal` must outlive the server.
  ConfigServer(vxmw_t* mw, SocketFile socket, Resync& resync, Journal& journal,
               std::optional<uid_t> daemon_user = std::nullopt,
               std::chrono::milliseconds commit_patience = kCommitPatience);
  // Withdraws a dump that is not complete.
  ~ConfigServer();
  ConfigServer(const ConfigServer&) = delete;
  ConfigServer& operator=(const ConfigServer&) = delete;

 private:
  bool IsDaemon(int fd) const;
  void WriteJournal();
  void Accept(base::Descriptor client);
  void Close(const std::string& reason);
  void OnReadable();
  void ReceiveSome();
  void WaitForCommit();
  void OnCommitStopped();
  void Send(const dhcp_relay::wire::ManagerMessage& message);

  vxmw_t* const mw_;
  Resync& resync_;
  Journal& journal_;
  const std::optional<uid_t> daemon_user_;
  const std::chrono::milliseconds commit_patience_;
  base::PacketReader reader_;
  dhcp_relay::wire::ClientMessage message_;
  base::Descriptor client_;
  std::optional<ConfigSession> session_;  // of client_
  std::unique_ptr<vxmw::IoSource> events_;
  vxmw::TimerSource commit_stopped_;
  base::LimitedLog refusals_{kLoggedDaemons, kDaemonInterval};
  Listener listener_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_CONFIG_SERVER_H_
