#include "ctl/render_table.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include "ctl/text.h"
#include "protocol/control/address_text.h"

namespace relayctl {
namespace {

namespace control = dhcp_relay::control;
using nlohmann::ordered_json;

std::string IdentifierText(std::uint32_t identifier) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08x", identifier);
  return text.data();
}

ordered_json InterfaceAsJson(const control::Interface& interface) {
  return {
      {"name", interface.name()},
      {"vlan", interface.has_vlan() ? ordered_json(interface.vlan()) : nullptr},
      {"address", interface.has_address() ? ordered_json(control::AddressText(interface.address()))
                                          : nullptr}};
}

ordered_json OverrideAsJson(const control::Override& override) {
  ordered_json object = {{"name", override.name()}};
  AddSettings(override.settings(), object);
  return object;
}

ordered_json InstanceAsJson(const control::Instance& instance) {
  ordered_json object = {{"name", instance.name()}, {"servers", ordered_json::array()}};
  for (const std::uint32_t server : instance.servers()) {
    object["servers"].push_back(control::AddressText(server));
  }
  AddSettings(instance.settings(), object);
  object["vrf"] = instance.has_vrf() ? ordered_json(IdentifierText(instance.vrf())) : nullptr;
  object["interfaces"] = ordered_json::array();
  for (const auto& interface : instance.interfaces()) {
    object["interfaces"].push_back(InterfaceAsJson(interface));
  }
  object["overrides"] = ordered_json::array();
  for (const auto& override : instance.overrides()) {
    object["overrides"].push_back(OverrideAsJson(override));
  }
  return object;
}

std::string InterfaceText(const control::Interface& interface) {
  std::string text = "VLAN ";
  text.append(interface.has_vlan() ? std::to_string(interface.vlan()) : "-");
  text.append(", address ");
  text.append(interface.has_address() ? control::AddressText(interface.address()) : "-");
  return text;
}

void AddLine(const std::string& label, const std::string& name, const std::string& what,
             std::string& text) {
  text.append("  ").append(label).append(" ").append(name).append(": ").append(what).append("\n");
}

std::string ServersText(const control::Instance& instance) {
  std::string text;
  for (const std::uint32_t server : instance.servers()) {
    text.append(text.empty() ? "" : ", ").append(control::AddressText(server));
  }
  return text.empty() ? "-" : text;
}

std::string InstanceText(const control::Instance& instance) {
  std::string text = "relay " + instance.name() + "\n";
  text.append("  servers: ").append(ServersText(instance)).append("\n");
  text.append("  VRF: ").append(instance.has_vrf() ? IdentifierText(instance.vrf()) : "-");
  text.append("\n  settings: ").append(SettingsText(instance.settings())).append("\n");
  for (const auto& interface : instance.interfaces()) {
    AddLine("interface", interface.name(), InterfaceText(interface), text);
  }
  for (const auto& override : instance.overrides()) {
    AddLine("override", override.name(), SettingsText(override.settings()), text);
  }
  return text;
}

}  // namespace

std::string TableAsJson(const std::vector<control::Instance>& table) {
  ordered_json instances = ordered_json::array();
  for (const control::Instance& instance : table) instances.push_back(InstanceAsJson(instance));
  return Dump({{"instances", std::move(instances)}});
}

std::string TableAsText(const std::vector<control::Instance>& table) {
  if (table.empty()) return "no relay instances\n";
  std::string text;
  for (const control::Instance& instance : table) text.append(InstanceText(instance));
  return text;
}

}  // namespace relayctl
