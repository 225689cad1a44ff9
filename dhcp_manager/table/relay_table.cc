#include "dhcp_manager/table/relay_table.h"

namespace dhcp_manager {
namespace {

namespace wire = dhcp_relay::wire;

nettypes::IPv4Addr AddressOf(const wire::Call& call) {
  return nettypes::IPv4Addr::from_host_order(call.address());
}

dhcp_relay::wire::Policy PolicyOf(const wire::Call& call) {
  return static_cast<dhcp_relay::wire::Policy>(call.policy());
}

bool IsDelete(wire::Operation operation) {
  switch (operation) {
    case wire::DELETE_SERVER:
    case wire::DELETE_INSTANCE:
    case wire::DELETE_L3_INTERFACE_VLAN:
    case wire::DELETE_L3_INTERFACE:
    case wire::DELETE_IF_OPTION:
      return true;
    default:
      return false;
  }
}

void SetSettings(Settings& settings, const wire::Call& call) {
  switch (call.operation()) {
    case wire::SET_TRUSTED:
    case wire::SET_IF_OPTION_TRUSTED:
      settings.trusted = call.flag();
      break;
    case wire::SET_OPTION:
    case wire::SET_IF_OPTION_OPTION:
      settings.option = call.flag();
      break;
    case wire::SET_CHECK:
    case wire::SET_IF_OPTION_CHECK:
      settings.check = call.flag();
      break;
    default:
      settings.policy = PolicyOf(call);
  }
}

void Set(Instance& instance, const wire::Call& call) {
  switch (call.operation()) {
    case wire::ADD_SERVER:
      instance.servers.insert(AddressOf(call));
      break;
    case wire::ADD_L3_INTERFACE:
      instance.interfaces[call.name()];
      break;
    case wire::SET_L3_INTERFACE_ADDRESS:
      instance.interfaces[call.name()].address = AddressOf(call);
      break;
    case wire::SET_L3_INTERFACE_VLAN:
      instance.interfaces[call.name()].vlan = static_cast<std::uint16_t>(call.vlan());
      break;
    case wire::SET_VRF:
      instance.vrf = call.identifier();
      break;
    case wire::SET_TRUSTED:
    case wire::SET_OPTION:
    case wire::SET_CHECK:
    case wire::SET_POLICY:
      SetSettings(instance.settings, call);
      break;
    case wire::ADD_IF_OPTION:
      instance.overrides[call.name()];
      break;
    default:
      SetSettings(instance.overrides[call.name()], call);
  }
}

void Delete(Instance& instance, const wire::Call& call) {
  switch (call.operation()) {
    case wire::DELETE_SERVER:
      instance.servers.erase(AddressOf(call));
      break;
    case wire::DELETE_L3_INTERFACE_VLAN: {
      // A VLAN id other than the one given has already replaced it.
      const auto found = instance.interfaces.find(call.name());
      if (found != instance.interfaces.end() && found->second.vlan == call.vlan()) {
        found->second.vlan.reset();
      }
      break;
    }
    case wire::DELETE_L3_INTERFACE:
      instance.interfaces.erase(call.name());
      break;
    case wire::DELETE_IF_OPTION:
      instance.overrides.erase(call.name());
      break;
    default:
      instance.vrf.reset();
  }
}

template <typename Value, typename Print>
void PrintOptional(std::ostream& out, const char* name, const std::optional<Value>& value,
                   Print print) {
  if (!value) return;
  out << ' ' << name << '=';
  print(*value);
}

std::ostream& operator<<(std::ostream& out, const Settings& options) {
  const auto print_bool = [&out](bool value) { out << (value ? "true" : "false"); };
  PrintOptional(out, "check", options.check, print_bool);
  PrintOptional(out, "trusted", options.trusted, print_bool);
  PrintOptional(out, "option", options.option, print_bool);
  PrintOptional(out, "policy", options.policy, [&out](dhcp_relay::wire::Policy policy) {
    out << dhcp_relay::wire::PolicyName(policy);
  });
  return out;
}

}  // namespace

void RelayTable::Apply(const wire::Call& call) {
  const bool clears_vrf = call.operation() == wire::SET_VRF && call.identifier() == 0;
  if (!clears_vrf && !IsDelete(call.operation())) {
    Set(instances_[call.instance()], call);
    return;
  }
  const auto found = instances_.find(call.instance());
  if (found == instances_.end()) return;
  if (call.operation() == wire::DELETE_INSTANCE) {
    instances_.erase(found);
  } else {
    Delete(found->second, call);
  }
}

std::ostream& operator<<(std::ostream& out, const RelayTable& table) {
  for (const auto& [name, instance] : table.instances()) {
    out << "\ninstance " << name << instance.settings;
    PrintOptional(out, "vrf", instance.vrf, [&out](limid_t vrf) { out << vrf; });
    for (const auto& server : instance.servers) out << "\n  server " << server;
    for (const auto& [if_name, interface] : instance.interfaces) {
      out << "\n  interface " << if_name;
      PrintOptional(out, "vlan", interface.vlan, [&out](std::uint16_t vlan) { out << vlan; });
      PrintOptional(out, "address", interface.address,
                    [&out](nettypes::IPv4Addr address) { out << address; });
    }
    for (const auto& [if_name, options] : instance.overrides) {
      out << "\n  override " << if_name << options;
    }
  }
  return out;
}

}  // namespace dhcp_manager
