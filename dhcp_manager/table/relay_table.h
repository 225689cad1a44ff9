// The relay table: the relay instances as the daemon's calls have configured them.

#ifndef DHCP_MANAGER_TABLE_RELAY_TABLE_H_
#define DHCP_MANAGER_TABLE_RELAY_TABLE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>

#include <limidmgr/limidmgr.h>
#include <nettypes/ipv4_addr.h>

#include "protocol/wire/policy.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {

// Settings of an instance or of an override; a setting that was never set has no value.
struct Settings {
  std::optional<bool> check;
  std::optional<bool> trusted;
  std::optional<bool> option;
  std::optional<dhcp_relay::wire::Policy> policy;

  bool operator==(const Settings&) const = default;
};

struct L3Interface {
  std::optional<std::uint16_t> vlan;
  std::optional<nettypes::IPv4Addr> address;

  bool operator==(const L3Interface&) const = default;
};

struct Instance {
  std::set<nettypes::IPv4Addr> servers;
  Settings settings;
  std::optional<limid_t> vrf;
  std::map<std::string, L3Interface> interfaces;
  std::map<std::string, Settings> overrides;

  bool operator==(const Instance&) const = default;
};

class RelayTable {
 public:
  // Carries out a call without fault (wire::Fault). Adding and setting create missing entries;
  // deleting a missing entry does nothing.
  void Apply(const dhcp_relay::wire::Call& call);

  // By name.
  const std::map<std::string, Instance>& instances() const { return instances_; }

  bool operator==(const RelayTable&) const = default;

 private:
  std::map<std::string, Instance> instances_;
};

// For the messages of failed tests.
std::ostream& operator<<(std::ostream& out, const RelayTable& table);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_RELAY_TABLE_H_
