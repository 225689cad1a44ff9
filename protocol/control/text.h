// Values of the protocol as people and programs read them.

#ifndef PROTOCOL_CONTROL_TEXT_H_
#define PROTOCOL_CONTROL_TEXT_H_

#include <cstdint>
#include <string>

namespace dhcp_relay::control {

std::string AddressText(std::uint32_t host_order);

// "drop", "keep", "replace", or the number.
std::string PolicyText(std::uint32_t policy);

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_TEXT_H_
