// The daemon's end of the manager: takes one client, asks it for a dump, and applies what it calls.

#ifndef DHCP_MANAGER_DAEMON_SERVER_H_
#define DHCP_MANAGER_DAEMON_SERVER_H_

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "daemon_session.h"
#include "journal.h"
#include "listener.h"
#include "resync.h"
#include "vxmw/event.h"
#include "wire.h"

namespace dhcp_manager {

class DaemonServer {
 public:
  // Listens on relay.sock in `directory`. `resync` and `journal` must outlive the server.
  DaemonServer(vxmw_t* mw, const std::filesystem::path& directory, Resync& resync,
               Journal& journal);
  // Withdraws a dump that is not complete.
  ~DaemonServer();
  DaemonServer(const DaemonServer&) = delete;
  DaemonServer& operator=(const DaemonServer&) = delete;

 private:
  void Accept(dhcp_relay::wire::Descriptor client);
  void Close(const std::string& reason);
  void OnReadable();
  void ReceiveSome();
  void Send(const dhcp_relay::wire::ManagerMessage& message);

  vxmw_t* const mw_;
  Resync& resync_;
  Journal& journal_;
  dhcp_relay::wire::PacketReader reader_;
  dhcp_relay::wire::ClientMessage message_;
  dhcp_relay::wire::Descriptor client_;
  std::optional<DaemonSession> session_;  // of client_
  std::unique_ptr<vxmw::IoSource> events_;
  Listener listener_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DAEMON_SERVER_H_
