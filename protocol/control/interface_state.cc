#include "protocol/control/interface_state.h"

#include <array>
#include <cstddef>

#include "protocol/control/enumerator_name.h"

namespace dhcp_relay::control {

std::span<const std::string> InterfaceStates() {
#define DHCP_RELAY_NAME(name) NameOfEnumerator(#name),
  static const std::array kNames{DHCP_RELAY_INTERFACE_STATES(DHCP_RELAY_NAME)};
#undef DHCP_RELAY_NAME
  return kNames;
}

const std::string& Name(InterfaceState state) {
  return InterfaceStates()[static_cast<std::size_t>(state)];
}

}  // namespace dhcp_relay::control
