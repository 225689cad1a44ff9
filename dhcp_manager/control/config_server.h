// The daemon's end of the manager: takes one client, asks it for a dump, and applies what it calls.

#ifndef DHCP_MANAGER_CONTROL_CONFIG_SERVER_H_
#define DHCP_MANAGER_CONTROL_CONFIG_SERVER_H_

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <vxmw/event.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "dhcp_manager/control/config_session.h"
#include "dhcp_manager/control/listener.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {

class ConfigServer {
 public:
  // Listens on relay.sock in `directory`. `resync` and `journal` must outlive the server.
  ConfigServer(vxmw_t* mw, const std::filesystem::path& directory, Resync& resync,
               Journal& journal);
  // Withdraws a dump that is not complete.
  ~ConfigServer();
  ConfigServer(const ConfigServer&) = delete;
  ConfigServer& operator=(const ConfigServer&) = delete;

 private:
  void Accept(base::Descriptor client);
  void Close(const std::string& reason);
  void OnReadable();
  void ReceiveSome();
  void Send(const dhcp_relay::wire::ManagerMessage& message);

  vxmw_t* const mw_;
  Resync& resync_;
  Journal& journal_;
  base::PacketReader reader_;
  dhcp_relay::wire::ClientMessage message_;
  base::Descriptor client_;
  std::optional<ConfigSession> session_;  // of client_
  std::unique_ptr<vxmw::IoSource> events_;
  Listener listener_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_CONFIG_SERVER_H_
