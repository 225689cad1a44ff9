// The operator's end of the manager: serves the programs that ask for the table, the status and the
// state of the relay, behind the packets and piece by piece.

#ifndef DHCP_MANAGER_CONTROL_CONTROL_SERVER_H_
#define DHCP_MANAGER_CONTROL_CONTROL_SERVER_H_

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <vxmw/event.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/service/log.h"
#include "dhcp_manager/control/control_session.h"
#include "dhcp_manager/control/listener.h"
#include "dhcp_manager/control/seats.h"
#include "dhcp_manager/control/socket_file.h"
#include "dhcp_manager/control/turns.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/relay_state.h"
#include "dhcp_manager/table/resync.h"

namespace dhcp_manager {

// Every operator may have commands refused, so that the log of it is limited: so many lines at
// once, and one an interval after that.
inline constexpr double kLoggedRefusals = 10;
inline constexpr std::chrono::seconds kRefusalInterval{10};

// How long a program may hold its connection without asking, or without reading what it asked for.
inline constexpr std::chrono::milliseconds kControlPatience{5000};

class ControlServer {
 public:
  // Listens on the control socket for whoever may open it: only clearing counters is kept to the
  // manager's own user and root. `resync`, `journal` and `relay` must outlive the server.
  ControlServer(vxmw_t* mw, SocketFile socket, const Resync& resync, const Journal& journal,
                RelayState& relay, std::chrono::milliseconds patience = kControlPatience);

 private:
  struct Client {
    uid_t user;
    base::Descriptor socket;
    ControlSession session;
    vxmw::TimerSource patience;
    std::unique_ptr<Answer> answer;  // null while nothing has been asked
    std::string packet;              // of the answer; waits for room in the socket
  };
  using Id = std::uint64_t;

  void Accept(base::Descriptor socket);
  void Add(uid_t user, base::Descriptor socket);
  void Close(Id id);
  void Refuse(const std::string& reason);
  void OnTurn(Id id, std::uint32_t events);
  void OnPatienceEnd(Id id);
  // These say whether the client is to be kept.
  bool Serve(Id id, Client& client, std::uint32_t events);
  bool Receive(Id id, Client& client);
  bool SendNext(Id id, Client& client);
  void Finish(Id id, Client& client);

  vxmw_t* const mw_;
  const Resync& resync_;
  const Journal& journal_;
  RelayState& relay_;
  const std::chrono::milliseconds patience_;
  base::PacketReader reader_;
  Seats seats_;
  Id latest_ = 0;
  Turns turns_;
  std::map<Id, Client> clients_;
  base::LimitedLog refusals_{kLoggedRefusals, kRefusalInterval};
  Listener listener_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_CONTROL_SERVER_H_
