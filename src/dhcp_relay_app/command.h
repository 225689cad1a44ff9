// The commands that the components of the daemon send to each other.

#ifndef SRC_DHCP_RELAY_APP_COMMAND_H_
#define SRC_DHCP_RELAY_APP_COMMAND_H_

#include <utility>

#include "src/dhcp_relay_app/dhcp_relay_intf.h"

namespace dhcp_relay_app {

// Receivers tell commands apart by their dynamic type.
class Command {
 public:
  Command() = default;
  virtual ~Command();
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;
};

// One relay record to be set or deleted, from the configuration handler to the DHCP manager facade.
class DhcpRelayIntfCmd : public Command {
 public:
  DhcpRelayIntfCmd(DhcpRelayIntf record, bool delete_it)
      : intf(std::move(record)), is_delete(delete_it) {}
  ~DhcpRelayIntfCmd() override;

  const DhcpRelayIntf intf;
  const bool is_delete;
};

// The DHCP manager asks for the whole relay configuration.
class DhcpDumpRequest : public Command {
 public:
  ~DhcpDumpRequest() override;
};

// The DHCP manager withdraws its request.
class DhcpDumpCancel : public Command {
 public:
  ~DhcpDumpCancel() override;
};

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_COMMAND_H_
