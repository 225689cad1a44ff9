// Addresses of the control protocol as people and programs read them.

#ifndef PROTOCOL_CONTROL_ADDRESS_TEXT_H_
#define PROTOCOL_CONTROL_ADDRESS_TEXT_H_

#include <cstdint>
#include <string>

#include <nettypes/ipv4_addr.h>

namespace dhcp_relay::control {

// "10.0.0.1".
inline std::string AddressText(std::uint32_t host_order) {
  return nettypes::IPv4Addr::from_host_order(host_order).to_string();
}

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_ADDRESS_TEXT_H_
