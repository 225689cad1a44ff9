#include <dhcp_user/dhcp_user.h>

#include "base/runtime_directory.h"
#include "platform/dhcp_user/src/client.h"
#include "protocol/wire/policy.h"

namespace dhcp_relay {
namespace {

using wire::Call;
using wire::Operation;

Call MakeCall(Operation operation, const std::string& instance, const std::string& name = {}) {
  Call call;
  call.set_operation(operation);
  call.set_instance(instance);
  call.set_name(name);
  return call;
}

Call WithAddress(Call call, nettypes::IPv4Addr address) {
  call.set_address(address.host_order());
  return call;
}

Call WithVlan(Call call, std::uint16_t vlan) {
  call.set_vlan(vlan);
  return call;
}

Call WithFlag(Call call, bool flag) {
  call.set_flag(flag);
  return call;
}

// The daemon's policies travel as the protocol's.
constexpr bool IsSame(Policy policy, wire::Policy of_protocol) {
  return static_cast<std::int32_t>(policy) == static_cast<std::int32_t>(of_protocol);
}
static_assert(IsSame(Policy::kDrop, wire::Policy::kDrop));
static_assert(IsSame(Policy::kKeep, wire::Policy::kKeep));
static_assert(IsSame(Policy::kReplace, wire::Policy::kReplace));

Call WithPolicy(Call call, Policy policy) {
  call.set_policy(static_cast<std::uint32_t>(policy));
  return call;
}

}  // namespace

class DhcpUser::Impl : public Client {
 public:
  using Client::Client;
};

DhcpUser::DhcpUser(vxmw_t* mw, CallbackIf* callbacks)
    : impl_(std::make_unique<Impl>(mw, callbacks, base::RuntimeDirectory())) {}

DhcpUser::~DhcpUser() = default;

void DhcpUser::AddServer(const std::string& instance, nettypes::IPv4Addr server) {
  impl_->Send(WithAddress(MakeCall(wire::ADD_SERVER, instance), server));
}

void DhcpUser::DeleteServer(const std::string& instance, nettypes::IPv4Addr server) {
  impl_->Send(WithAddress(MakeCall(wire::DELETE_SERVER, instance), server));
}

void DhcpUser::DeleteInstance(const std::string& instance) {
  impl_->Send(MakeCall(wire::DELETE_INSTANCE, instance));
}

void DhcpUser::AddL3Interface(const std::string& instance, const std::string& interface) {
  impl_->Send(MakeCall(wire::ADD_L3_INTERFACE, instance, interface));
}

void DhcpUser::SetL3InterfaceAddress(const std::string& instance, const std::string& interface,
                                     nettypes::IPv4Addr address) {
  impl_->Send(WithAddress(MakeCall(wire::SET_L3_INTERFACE_ADDRESS, instance, interface), address));
}

void DhcpUser::SetVrf(const std::string& instance, limid_t vrf) {
  Call call = MakeCall(wire::SET_VRF, instance);
  call.set_identifier(vrf);
  impl_->Send(call);
}

void DhcpUser::SetL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                  std::uint16_t vlan) {
  impl_->Send(WithVlan(MakeCall(wire::SET_L3_INTERFACE_VLAN, instance, interface), vlan));
}

void DhcpUser::DeleteL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                     std::uint16_t vlan) {
  impl_->Send(WithVlan(MakeCall(wire::DELETE_L3_INTERFACE_VLAN, instance, interface), vlan));
}

void DhcpUser::DeleteL3Interface(const std::string& instance, const std::string& interface) {
  impl_->Send(MakeCall(wire::DELETE_L3_INTERFACE, instance, interface));
}

void DhcpUser::SetTrusted(const std::string& instance, bool trusted) {
  impl_->Send(WithFlag(MakeCall(wire::SET_TRUSTED, instance), trusted));
}

void DhcpUser::SetOption(const std::string& instance, bool option) {
  impl_->Send(WithFlag(MakeCall(wire::SET_OPTION, instance), option));
}

void DhcpUser::SetCheck(const std::string& instance, bool check) {
  impl_->Send(WithFlag(MakeCall(wire::SET_CHECK, instance), check));
}

void DhcpUser::SetPolicy(const std::string& instance, Policy policy) {
  impl_->Send(WithPolicy(MakeCall(wire::SET_POLICY, instance), policy));
}

void DhcpUser::AddIfOption(const std::string& instance, const std::string& if_option) {
  impl_->Send(MakeCall(wire::ADD_IF_OPTION, instance, if_option));
}

void DhcpUser::DeleteIfOption(const std::string& instance, const std::string& if_option) {
  impl_->Send(MakeCall(wire::DELETE_IF_OPTION, instance, if_option));
}

void DhcpUser::SetIfOptionTrusted(const std::string& instance, const std::string& if_option,
                                  bool trusted) {
  impl_->Send(WithFlag(MakeCall(wire::SET_IF_OPTION_TRUSTED, instance, if_option), trusted));
}

void DhcpUser::SetIfOptionOption(const std::string& instance, const std::string& if_option,
                                 bool option) {
  impl_->Send(WithFlag(MakeCall(wire::SET_IF_OPTION_OPTION, instance, if_option), option));
}

void DhcpUser::SetIfOptionCheck(const std::string& instance, const std::string& if_option,
                                bool check) {
  impl_->Send(WithFlag(MakeCall(wire::SET_IF_OPTION_CHECK, instance, if_option), check));
}

void DhcpUser::SetIfOptionPolicy(const std::string& instance, const std::string& if_option,
                                 Policy policy) {
  impl_->Send(WithPolicy(MakeCall(wire::SET_IF_OPTION_POLICY, instance, if_option), policy));
}

}  // namespace dhcp_relay
