#include "ctl/render_state.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ctl/text.h"
#include "protocol/control/outcome.h"

namespace relayctl {
namespace {

namespace control = dhcp_relay::control;
using control::ReplyOutcome;
using control::RequestOutcome;
using control::UnmatchedOutcome;
using nlohmann::ordered_json;

using Row = std::vector<std::string>;

// Columns as wide as their widest cell, two blanks apart.
std::string Table(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line.append(row[i]).append(widths[i] - row[i].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text.append(line).append("\n");
  }
  return text;
}

struct PortCount {
  std::size_t all = 0;
  std::size_t up = 0;
};

PortCount CountPorts(const dhcp_relay::control::RelayState& state, const std::string& instance) {
  PortCount count;
  for (const control::Port& port : state.ports) {
    if (port.instance() != instance) continue;
    ++count.all;
    if (port.state() == "up") ++count.up;
  }
  return count;
}

std::string VrfText(const control::Service& service) {
  if (service.vrf_missing()) return "missing";
  return service.vrf_device().empty() ? "-" : service.vrf_device();
}

template <typename Fate, typename Fates>
void AddFates(const Fates& outcomes, ordered_json& object) {
  for (int i = 0; i < outcomes.size(); ++i) object[Name(static_cast<Fate>(i))] = outcomes.Get(i);
}

template <typename Fate, typename Fates>
std::string FatesText(const Fates& outcomes) {
  std::string text;
  for (int i = 0; i < outcomes.size(); ++i) {
    if (outcomes.Get(i) == 0) continue;
    text.append(text.empty() ? "" : ", ").append(Name(static_cast<Fate>(i))).append(" ");
    text.append(std::to_string(outcomes.Get(i)));
  }
  return text.empty() ? text : " (" + text + ")";
}

std::uint64_t Received(const dhcp_relay::control::RelayState& state) {
  std::uint64_t received = state.unmatched.received();
  for (const control::Port& port : state.ports) received += port.requests() + port.replies();
  return received;
}

}  // namespace

std::string InstancesAsJson(const dhcp_relay::control::RelayState& state) {
  ordered_json instances = ordered_json::array();
  for (const control::Service& service : state.services) {
    const PortCount ports = CountPorts(state, service.instance());
    instances.push_back(
        {{"name", service.instance()},
         {"vrf_device", service.vrf_device().empty() ? ordered_json(nullptr)
                                                     : ordered_json(service.vrf_device())},
         {"vrf_missing", service.vrf_missing()},
         {"servers", service.servers_size()},
         {"interfaces", ports.all},
         {"interfaces_up", ports.up}});
  }
  return Dump({{"instances", std::move(instances)}});
}

std::string InstancesAsText(const dhcp_relay::control::RelayState& state) {
  if (state.services.empty()) return "no relay instances\n";
  std::vector<Row> rows{{"INSTANCE", "VRF", "SERVERS", "INTERFACES", "UP"}};
  for (const control::Service& service : state.services) {
    const PortCount ports = CountPorts(state, service.instance());
    rows.push_back({service.instance(), VrfText(service), std::to_string(service.servers_size()),
                    std::to_string(ports.all), std::to_string(ports.up)});
  }
  return Table(rows);
}

std::string InterfacesAsJson(const dhcp_relay::control::RelayState& state) {
  ordered_json interfaces = ordered_json::array();
  for (const control::Port& port : state.ports) {
    ordered_json object = {
        {"instance", port.instance()},
        {"name", port.name()},
        {"vlan", port.has_vlan() ? ordered_json(port.vlan()) : nullptr},
        {"address",
         port.address() != 0 ? ordered_json(control::AddressText(port.address())) : nullptr},
        {"state", port.state()},
        {"link", port.link().empty() ? ordered_json(nullptr) : ordered_json(port.link())}};
    AddOptions(port.options(), object);
    interfaces.push_back(std::move(object));
  }
  return Dump({{"interfaces", std::move(interfaces)}});
}

std::string InterfacesAsText(const dhcp_relay::control::RelayState& state) {
  if (state.ports.empty()) return "no relay interfaces\n";
  std::vector<Row> rows{
      {"INSTANCE", "INTERFACE", "VLAN", "ADDRESS", "STATE", "LINK", "SETTINGS IN FORCE"}};
  for (const control::Port& port : state.ports) {
    rows.push_back({port.instance(), port.name(),
                    port.has_vlan() ? std::to_string(port.vlan()) : "-",
                    port.address() != 0 ? control::AddressText(port.address()) : "-", port.state(),
                    port.link().empty() ? "-" : port.link(), OptionsText(port.options())});
  }
  return Table(rows);
}

std::string CountersAsJson(const dhcp_relay::control::RelayState& state) {
  ordered_json interfaces = ordered_json::array();
  for (const control::Port& port : state.ports) {
    ordered_json requests = {{"received", port.requests()}};
    AddFates<control::RequestOutcome>(port.request_fates(), requests);
    ordered_json replies = {{"received", port.replies()}};
    AddFates<control::ReplyOutcome>(port.reply_fates(), replies);
    interfaces.push_back({{"instance", port.instance()},
                          {"name", port.name()},
                          {"requests", std::move(requests)},
                          {"option_left_out", port.option_left_out()},
                          {"replies", std::move(replies)}});
  }
  ordered_json other = {{"received", state.unmatched.received()}};
  AddFates<control::UnmatchedOutcome>(state.unmatched.fates(), other);
  return Dump({{"interfaces", std::move(interfaces)},
               {"other", std::move(other)},
               {"received", Received(state)}});
}

std::string CountersAsText(const dhcp_relay::control::RelayState& state) {
  std::string text;
  for (const control::Port& port : state.ports) {
    text.append(port.instance()).append(" ").append(port.name()).append("\n  requests ");
    text.append(std::to_string(port.requests()));
    text.append(FatesText<control::RequestOutcome>(port.request_fates())).append("\n");
    if (port.option_left_out() != 0) {
      text.append("  sent without option for want of room ");
      text.append(std::to_string(port.option_left_out())).append("\n");
    }
    text.append("  replies ").append(std::to_string(port.replies()));
    text.append(FatesText<control::ReplyOutcome>(port.reply_fates())).append("\n");
  }
  text.append("other ").append(std::to_string(state.unmatched.received()));
  text.append(FatesText<control::UnmatchedOutcome>(state.unmatched.fates())).append("\n");
  return text;
}

std::string ServersAsJson(const dhcp_relay::control::RelayState& state) {
  ordered_json servers = ordered_json::array();
  for (const control::Service& service : state.services) {
    for (const control::ServerState& server : service.servers()) {
      servers.push_back({{"instance", service.instance()},
                         {"address", control::AddressText(server.address())},
                         {"sent", server.sent()},
                         {"failed", server.failed()},
                         {"replies", server.replies()}});
    }
  }
  return Dump({{"servers", std::move(servers)}});
}

std::string ServersAsText(const dhcp_relay::control::RelayState& state) {
  std::vector<Row> rows{{"INSTANCE", "SERVER", "SENT", "FAILED", "REPLIES"}};
  for (const control::Service& service : state.services) {
    for (const control::ServerState& server : service.servers()) {
      rows.push_back({service.instance(), control::AddressText(server.address()),
                      std::to_string(server.sent()), std::to_string(server.failed()),
                      std::to_string(server.replies())});
    }
  }
  return rows.size() == 1 ? "no servers\n" : Table(rows);
}

}  // namespace relayctl
