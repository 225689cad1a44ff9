#include "dhcp_manager/datapath/datapath_table.h"

#include <arpa/inet.h>

#include <utility>

#include "dhcp_manager/datapath/headers.h"

namespace dhcp_manager {
namespace {

sockaddr_in ServerAddress(nettypes::IPv4Addr server) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kServerPort);
  address.sin_addr = server.to_in_addr();
  return address;
}

}  // namespace

DatapathTable::DatapathTable(Counters& counters, const FloodLimits& flood_limits)
    : counters_(counters), flood_guards_(flood_limits) {}

void DatapathTable::Apply(Forwarding forwarding) {
  interfaces_.clear();
  servers_.clear();
  forwarding_ = std::move(forwarding);
}

void DatapathTable::Resolve(const Outboxes& outboxes) {
  ResolveServers();
  interfaces_.clear();
  const auto now = FloodGuards::Clock::now();
  for (const RelayInterface& interface : forwarding_.interfaces()) {
    const RelayInstance& instance = *interface.instance;
    const auto outbox = outboxes.find(instance.vrf);
    interfaces_.push_back({.counters = &counters_.Interface(instance.name, interface.name),
                           .flood_guard = flood_guards_.Of(interface, now),
                           .own_addresses = &forwarding_.OwnAddresses(instance.vrf),
                           .outbox = outbox == outboxes.end() ? nullptr : outbox->second,
                           .servers = &servers_.at(&instance)});
  }
  flood_guards_.Synchronise(counters_);
}

void DatapathTable::ResolveServers() {
  servers_.clear();
  for (const RelayInstance& instance : forwarding_.instances()) {
    auto& servers = servers_[&instance];
    for (const auto& server : instance.servers) {
      servers.push_back(
          {.address = ServerAddress(server), .counters = &counters_.Server(instance.name, server)});
    }
  }
}

}  // namespace dhcp_manager
