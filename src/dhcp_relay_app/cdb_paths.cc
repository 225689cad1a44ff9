#include "src/dhcp_relay_app/cdb_paths.h"

#include <cstddef>

namespace dhcp_relay_app {
namespace {

constexpr std::size_t kL3PrefixLength = sizeof(kL3Prefix) - 1;

}  // namespace

std::string Entry(const std::string& list, const std::string& key) {
  return list + "{" + key + "}";
}

std::string L3Path(const std::string& relay_if_name) {
  return Entry("/config/interface/l3", relay_if_name.substr(kL3PrefixLength));
}

std::string VlanPath(const std::string& l3_path) { return l3_path + "/lower-layer-if/vlan"; }

std::string AddressPath(const std::string& l3_path) { return l3_path + "/ipv4/address/ip"; }

}  // namespace dhcp_relay_app
