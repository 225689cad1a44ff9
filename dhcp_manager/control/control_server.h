// The operator's end of the manager: serves any number of programs that ask for the table, the
// status and the state of the relay.

#ifndef DHCP_MANAGER_CONTROL_CONTROL_SERVER_H_
#define DHCP_MANAGER_CONTROL_CONTROL_SERVER_H_

#include <cstdint>
#include <deque>
#include <filesystem>
#include <list>
#include <memory>
#include <string>

#include <vxmw/event.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "dhcp_manager/control/control_session.h"
#include "dhcp_manager/control/listener.h"
#include "dhcp_manager/table/relay_state.h"
#include "dhcp_manager/table/resync.h"

namespace dhcp_manager {

class ControlServer {
 public:
  // Listens on the control socket in `directory`, for any user: only clearing counters is kept to
  // the manager's own user and root. `resync` and `relay` must outlive the server.
  ControlServer(vxmw_t* mw, const std::filesystem::path& directory, const Resync& resync,
                RelayState& relay);

 private:
  struct Client {
    base::Descriptor socket;
    ControlSession session;
    std::unique_ptr<vxmw::IoSource> events;
    std::deque<std::string> replies;  // packets that wait for room in the socket
  };
  using ClientIterator = std::list<Client>::iterator;

  void Accept(base::Descriptor socket);
  void OnEvents(ClientIterator client, std::uint32_t events);
  // These say whether the client is to be kept.
  bool Receive(Client& client);
  bool Answer(Client& client);
  static bool Flush(Client& client);

  vxmw_t* const mw_;
  const Resync& resync_;
  RelayState& relay_;
  base::PacketReader reader_;
  std::list<Client> clients_;
  Listener listener_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_CONTROL_SERVER_H_
