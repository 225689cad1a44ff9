#include "ctl/render_state.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "ctl/text.h"
#include "protocol/control/address_text.h"
#include "protocol/control/interface_state.h"
#include "protocol/control/outcome_counts.h"

namespace relayctl {
namespace {

namespace control = dhcp_relay::control;
using control::RelayState;
using nlohmann::ordered_json;

struct InterfaceCount {
  std::size_t all = 0;
  std::size_t up = 0;
};

InterfaceCount CountInterfaces(const RelayState& state, const std::string& instance) {
  const auto up = Name(control::InterfaceState::kUp);
  // The interfaces come by instance. (Clang 14 cannot use the result of std::ranges::equal_range.)
  auto interface =
      std::ranges::lower_bound(state.interfaces, instance, {}, &control::RelayInterface::instance);
  InterfaceCount count;
  for (; interface != state.interfaces.end() && interface->instance() == instance; ++interface) {
    ++count.all;
    if (interface->state() == up) ++count.up;
  }
  return count;
}

std::string VrfText(const control::RelayInstance& instance) {
  if (instance.vrf_missing()) return "missing";
  return instance.vrf_device().empty() ? "-" : instance.vrf_device();
}

ordered_json OrNull(const std::string& text) {
  return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json InterfaceAsJson(const control::RelayInterface& interface) {
  const std::string address =
      interface.address() != 0 ? control::AddressText(interface.address()) : "";
  ordered_json object = {{"instance", interface.instance()},
                         {"name", interface.name()},
                         {"vlan", interface.has_vlan() ? ordered_json(interface.vlan()) : nullptr},
                         {"address", OrNull(address)},
                         {"state", interface.state()},
                         {"reason", OrNull(interface.reason())},
                         {"link", OrNull(interface.link())}};
  AddSettings(interface.settings(), object);
  return object;
}

ordered_json OutcomesAsJson(std::uint64_t received, const control::OutcomeCounts& outcomes) {
  ordered_json object = {{"received", received}};
  for (const auto& outcome : outcomes) object[outcome.outcome()] = outcome.count();
  return object;
}

// "1000 (relayed 998, malformed 2)".
std::string OutcomesText(std::uint64_t received, const control::OutcomeCounts& outcomes) {
  std::string list;
  for (const auto& outcome : outcomes) {
    if (outcome.count() == 0) continue;
    list.append(list.empty() ? "" : ", ").append(outcome.outcome()).append(" ");
    list.append(std::to_string(outcome.count()));
  }
  return std::to_string(received) + (list.empty() ? "" : " (" + list + ")");
}

std::string CountersText(const control::RelayInterface& interface) {
  std::string text = interface.instance() + " " + interface.name() + "\n";
  text.append("  requests ");
  text.append(OutcomesText(interface.requests(), interface.request_outcomes())).append("\n");
  if (interface.option_left_out() != 0) {
    text.append("  sent without option 82, no room ");
    text.append(std::to_string(interface.option_left_out())).append("\n");
  }
  text.append("  replies ");
  text.append(OutcomesText(interface.replies(), interface.reply_outcomes())).append("\n");
  return text;
}

std::uint64_t Received(const RelayState& state) {
  std::uint64_t received = state.unmatched.received();
  for (const auto& interface : state.interfaces) {
    received += interface.requests() + interface.replies();
  }
  return received;
}

}  // namespace

std::string InstancesAsJson(const RelayState& state) {
  ordered_json instances = ordered_json::array();
  for (const control::RelayInstance& instance : state.instances) {
    const InterfaceCount interfaces = CountInterfaces(state, instance.name());
    instances.push_back({{"name", instance.name()},
                         {"vrf_device", OrNull(instance.vrf_device())},
                         {"vrf_missing", instance.vrf_missing()},
                         {"servers", instance.servers_size()},
                         {"interfaces", interfaces.all},
                         {"interfaces_up", interfaces.up}});
  }
  return Dump({{"instances", std::move(instances)}});
}

std::string InstancesAsText(const RelayState& state) {
  if (state.instances.empty()) return "no relay instances\n";
  std::vector<Row> rows{{"INSTANCE", "VRF", "SERVERS", "INTERFACES", "UP"}};
  for (const control::RelayInstance& instance : state.instances) {
    const InterfaceCount interfaces = CountInterfaces(state, instance.name());
    rows.push_back({instance.name(), VrfText(instance), std::to_string(instance.servers_size()),
                    std::to_string(interfaces.all), std::to_string(interfaces.up)});
  }
  return Columns(rows);
}

std::string InterfacesAsJson(const RelayState& state) {
  ordered_json interfaces = ordered_json::array();
  for (const auto& interface : state.interfaces) interfaces.push_back(InterfaceAsJson(interface));
  return Dump({{"interfaces", std::move(interfaces)}});
}

std::string InterfacesAsText(const RelayState& state) {
  if (state.interfaces.empty()) return "no relay interfaces\n";
  std::vector<Row> rows{
      {"INSTANCE", "INTERFACE", "VLAN", "ADDRESS", "STATE", "LINK", "SETTINGS IN FORCE", "REASON"}};
  for (const control::RelayInterface& interface : state.interfaces) {
    rows.push_back({interface.instance(), interface.name(),
                    interface.has_vlan() ? std::to_string(interface.vlan()) : "-",
                    interface.address() != 0 ? control::AddressText(interface.address()) : "-",
                    interface.state(), interface.link().empty() ? "-" : interface.link(),
                    SettingsText(interface.settings()), interface.reason()});
  }
  return Columns(rows);
}

std::string CountersAsJson(const RelayState& state) {
  ordered_json interfaces = ordered_json::array();
  for (const control::RelayInterface& interface : state.interfaces) {
    interfaces.push_back(
        {{"instance", interface.instance()},
         {"name", interface.name()},
         {"requests", OutcomesAsJson(interface.requests(), interface.request_outcomes())},
         {"option_left_out", interface.option_left_out()},
         {"replies", OutcomesAsJson(interface.replies(), interface.reply_outcomes())}});
  }
  return Dump({{"interfaces", std::move(interfaces)},
               {"other", OutcomesAsJson(state.unmatched.received(), state.unmatched.outcomes())},
               {"kernel_drops", KernelDropsAsJson(state.kernel_drops)},
               {"received", Received(state)}});
}

std::string CountersAsText(const RelayState& state) {
  std::string text;
  for (const control::RelayInterface& interface : state.interfaces) {
    text.append(CountersText(interface));
  }
  text.append("other ");
  text.append(OutcomesText(state.unmatched.received(), state.unmatched.outcomes())).append("\n");
  if (!HasKernelDrops(state.kernel_drops)) return text;
  return text.append("dropped by the kernel: ").append(KernelDropsText(state.kernel_drops)) + "\n";
}

std::string ServersAsJson(const RelayState& state) {
  ordered_json servers = ordered_json::array();
  for (const control::RelayInstance& instance : state.instances) {
    for (const control::Server& server : instance.servers()) {
      servers.push_back({{"instance", instance.name()},
                         {"address", control::AddressText(server.address())},
                         {"sent", server.sent()},
                         {"failed", server.failed()},
                         {"replies", server.replies()}});
    }
  }
  return Dump({{"servers", std::move(servers)}});
}

std::string ServersAsText(const RelayState& state) {
  std::vector<Row> rows{{"INSTANCE", "SERVER", "SENT", "FAILED", "REPLIES"}};
  for (const control::RelayInstance& instance : state.instances) {
    for (const control::Server& server : instance.servers()) {
      rows.push_back({instance.name(), control::AddressText(server.address()),
                      std::to_string(server.sent()), std::to_string(server.failed()),
                      std::to_string(server.replies())});
    }
  }
  return rows.size() == 1 ? "no servers\n" : Columns(rows);
}

}  // namespace relayctl
