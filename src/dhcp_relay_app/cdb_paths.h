// The places of the configuration tree that the daemon reads and subscribes to.
//
// Keys stand in a path as they are. A path is the format of the call that it is given to.

#ifndef SRC_DHCP_RELAY_APP_CDB_PATHS_H_
#define SRC_DHCP_RELAY_APP_CDB_PATHS_H_

#include <string>

namespace dhcp_relay_app {

// Relay instances.
inline constexpr char kRelayPath[] = "/config/dhcp/relay";

// Leaves of all layer-3 interfaces.
inline constexpr char kL3Ipv4Path[] = "/config/interface/l3/ipv4/address/ip";
inline constexpr char kL3VlanPath[] = "/config/interface/l3/lower-layer-if/vlan";

// The VRF index of the VRF whose name is the argument.
inline constexpr char kVrfIndexPath[] =
    "/metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{%s}/vrf-idx";

// A relay interface is named after its layer-3 interface, behind this prefix.
inline constexpr char kL3Prefix[] = "l3-";

// The entry of a list.
std::string Entry(const std::string& list, const std::string& key);

// The layer-3 interface of a relay interface. Drops the length of the prefix whatever the name
// begins with; throws std::out_of_range when the name is shorter.
std::string L3Path(const std::string& relay_if_name);

// Leaves of one layer-3 interface.
std::string VlanPath(const std::string& l3_path);
std::string AddressPath(const std::string& l3_path);

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_CDB_PATHS_H_
