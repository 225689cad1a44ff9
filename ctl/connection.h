// The command's connection to the DHCP manager.

#ifndef CTL_CONNECTION_H_
#define CTL_CONNECTION_H_

#include <filesystem>
#include <vector>

#include "control.pb.h"
#include "wire.h"

namespace relayctl {

// What the relaying is doing.
struct RelayState {
  std::vector<dhcp_manager::control::Service> services;  // by instance
  std::vector<dhcp_manager::control::Port> ports;        // by instance, then by name
  dhcp_manager::control::Strays strays;
};

// Each request waits for its answer, within a limit. Throws WireError when the manager does not
// answer.
class Connection {
 public:
  explicit Connection(const std::filesystem::path& directory);

  dhcp_manager::control::Status Status();

  // Every relay instance, by name.
  std::vector<dhcp_manager::control::Instance> Table();

  RelayState State();

  void ClearCounters();

 private:
  void Ask(dhcp_manager::control::Request::Kind kind);
  dhcp_manager::control::Reply Receive();

  dhcp_relay::wire::Descriptor fd_;
  dhcp_relay::wire::PacketReader reader_;
};

}  // namespace relayctl

#endif  // CTL_CONNECTION_H_
