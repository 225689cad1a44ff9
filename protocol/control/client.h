// A connection to the DHCP manager, for those who ask it.

#ifndef PROTOCOL_CONTROL_CLIENT_H_
#define PROTOCOL_CONTROL_CLIENT_H_

#include <filesystem>
#include <vector>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "protocol/control/control.pb.h"

namespace dhcp_relay::control {

// What the relaying is doing.
struct RelayState {
  std::vector<Service> services;  // by instance
  std::vector<Port> ports;        // by instance, then by name
  Strays unmatched;
};

// Each request waits for its answer, within a limit. Throws base::ConnectionError when the manager
// does not answer.
class Connection {
 public:
  explicit Connection(const std::filesystem::path& directory);

  control::Status Status();

  // Every relay instance, by name.
  std::vector<Instance> Table();

  RelayState State();

  void ClearCounters();

 private:
  void Ask(Request::Kind kind);
  Reply Receive();

  base::Descriptor fd_;
  base::PacketReader reader_;
};

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_CLIENT_H_
