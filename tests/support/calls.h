// Calls of the wire protocol, written down in one line each.

#ifndef TESTS_SUPPORT_CALLS_H_
#define TESTS_SUPPORT_CALLS_H_

#include <cstdint>
#include <string>

#include "protocol/wire/wire.h"

namespace tests {

inline dhcp_relay::wire::Call Call(dhcp_relay::wire::Operation operation,
                                   const std::string& instance, const std::string& name = {}) {
  dhcp_relay::wire::Call call;
  call.set_operation(operation);
  call.set_instance(instance);
  call.set_name(name);
  return call;
}

inline dhcp_relay::wire::Call AddressCall(dhcp_relay::wire::Operation operation,
                                          const std::string& instance, std::uint32_t address,
                                          const std::string& name = {}) {
  auto call = Call(operation, instance, name);
  call.set_address(address);
  return call;
}

inline dhcp_relay::wire::Call VlanCall(dhcp_relay::wire::Operation operation,
                                       const std::string& instance, const std::string& name,
                                       std::uint32_t vlan) {
  auto call = Call(operation, instance, name);
  call.set_vlan(vlan);
  return call;
}

inline dhcp_relay::wire::Call FlagCall(dhcp_relay::wire::Operation operation,
                                       const std::string& instance, bool flag,
                                       const std::string& name = {}) {
  auto call = Call(operation, instance, name);
  call.set_flag(flag);
  return call;
}

inline dhcp_relay::wire::Call PolicyCall(dhcp_relay::wire::Operation operation,
                                         const std::string& instance, std::uint32_t policy,
                                         const std::string& name = {}) {
  auto call = Call(operation, instance, name);
  call.set_policy(policy);
  return call;
}

inline dhcp_relay::wire::Call VrfCall(const std::string& instance, std::uint32_t identifier) {
  auto call = Call(dhcp_relay::wire::SET_VRF, instance);
  call.set_identifier(identifier);
  return call;
}

}  // namespace tests

#endif  // TESTS_SUPPORT_CALLS_H_
