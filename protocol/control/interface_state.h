// Whether a relay interface relays, or why it does not.
//
// A new state is a line in the list below, an enum of that name in yang/vx-dhcp-relay-state.yang,
// and the place where it arises.

#ifndef PROTOCOL_CONTROL_INTERFACE_STATE_H_
#define PROTOCOL_CONTROL_INTERFACE_STATE_H_

#include <cstdint>
#include <span>
#include <string>

namespace dhcp_relay::control {

// clang-format off
#define DHCP_RELAY_INTERFACE_STATES(X)                                                    \
  X(kUp)                                                                                  \
  X(kDown)              /* its kernel interface is down */                                \
  X(kMissing)           /* no kernel interface has its address in the instance's VRF */   \
  X(kNoAddress)         /* no address is configured */                                    \
  X(kNoVrf)             /* the kernel has no device for the instance's VRF */             \
  X(kDuplicateAddress)  /* another interface already relays for its address */            \
  X(kNoSocket)          /* the instance's VRF has no socket, for a reason told beside it */
// clang-format on

#define DHCP_RELAY_ENUMERATOR(name) name,
enum class InterfaceState : std::uint8_t { DHCP_RELAY_INTERFACE_STATES(DHCP_RELAY_ENUMERATOR) };
#undef DHCP_RELAY_ENUMERATOR

// The names under which states travel, and which operators see, in the order of the list:
// "no-address" for kNoAddress.
std::span<const std::string> InterfaceStates();

const std::string& Name(InterfaceState state);

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_INTERFACE_STATE_H_
