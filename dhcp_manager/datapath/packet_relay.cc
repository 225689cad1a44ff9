#include "dhcp_manager/datapath/packet_relay.h"

#include <utility>

namespace dhcp_manager {

PacketRelay::PacketRelay(vxmw_t* mw, SocketOpener& opener, Counters& counters, RouteLookup& routes,
                         const FloodLimits& flood_limits, Events events)
    : table_(counters, flood_limits),
      requests_(table_, opener.filter_table()),
      replies_(table_, routes),
      sockets_(mw, opener,
               {.on_requests =
                    [this] {
                      RelayRequests();
                      poller_.OnWake();
                    },
                .on_replies =
                    [this](VrfSocket& socket) {
                      RelayReplies(socket);
                      poller_.OnWake();
                    },
                .on_opened =
                    [this, on_opened = std::move(events.on_opened)] {
                      table_.Resolve(sockets_.VrfOutboxes());
                      on_opened();
                    },
                .on_failure = std::move(events.on_failure)}),
      poller_(
          mw, [this] { return PollSockets(); },
          [this](bool wake_up) { sockets_.SetWakeUp(wake_up); }),
      kernel_counts_(opener.filter_table(), counters) {}

void PacketRelay::Apply(Forwarding forwarding) {
  table_.Apply(std::move(forwarding));
  sockets_.Apply(table_.forwarding());
  table_.Resolve(sockets_.VrfOutboxes());
}

std::size_t PacketRelay::RelayRequests() { return requests_.Relay(sockets_.client()->ring); }

std::size_t PacketRelay::RelayReplies(VrfSocket& socket) {
  return replies_.Relay(socket.vrf, *socket.socket, sockets_.client_outbox());
}

std::size_t PacketRelay::PollSockets() {
  std::size_t packets = 0;
  sockets_.ForEachReady([this, &packets](VrfSocket* socket) {
    packets += socket == nullptr ? RelayRequests() : RelayReplies(*socket);
  });
  return packets;
}

}  // namespace dhcp_manager
