#include "protocol/control/text.h"

#include <array>

#include <nettypes/ipv4_addr.h>

namespace dhcp_relay::control {

std::string AddressText(std::uint32_t host_order) {
  return nettypes::IPv4Addr::from_host_order(host_order).to_string();
}

std::string PolicyText(std::uint32_t policy) {
  constexpr std::array kPolicyNames{"drop", "keep", "replace"};
  return policy < kPolicyNames.size() ? kPolicyNames[policy] : std::to_string(policy);
}

}  // namespace dhcp_relay::control
