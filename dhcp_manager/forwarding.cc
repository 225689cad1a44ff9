#include "forwarding.h"

#include <algorithm>

#include "limidmgr/limidmgr.h"

namespace dhcp_manager {
namespace {

std::uint32_t Key(nettypes::IPv4Addr address) { return address.to_in_addr().s_addr; }

std::uint64_t Key(VrfIndex vrf, nettypes::IPv4Addr address) {
  constexpr unsigned kAddressBits = 32;
  return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(vrf)) << kAddressBits) |
         Key(address);
}

// The override's value where it has one, else the instance's, else that of the data model.
template <typename Value>
Value Effective(const std::optional<Value>& override, const std::optional<Value>& instance,
                Value otherwise) {
  return override ? *override : instance.value_or(otherwise);
}

void SetSettings(const Options& instance, const Options& override, RelayPort& relay) {
  relay.check = Effective(override.check, instance.check, false);
  relay.trusted = Effective(override.trusted, instance.trusted, false);
  relay.option = Effective(override.option, instance.option, false);
  relay.policy = Effective(override.policy, instance.policy, dhcp_relay::Policy::kKeep);
}

std::optional<VrfIndex> FindVrf(const std::optional<limid_t>& vrf, const Links& links) {
  if (!vrf || *vrf == 0) return kDefaultVrf;
  return links.FindVrf(limid_number_of(*vrf));
}

}  // namespace

const char* Name(PortState state) {
  switch (state) {
    case PortState::kUp:
      return "up";
    case PortState::kDown:
      return "down";
    case PortState::kMissing:
      return "missing";
    case PortState::kNoAddress:
      return "no-address";
    case PortState::kNoVrf:
      return "no-vrf";
    case PortState::kShadowed:
      return "shadowed";
  }
  return "unknown";
}

Forwarding::Forwarding(const RelayTable& table, const Links& links) {
  for (const LinkAddress& address : links.addresses) {
    const auto link = links.links.find(address.link);
    if (link == links.links.end()) continue;
    owners_.emplace(Key(address.address), &address);
    own_addresses_[links.VrfOf(link->second)].insert(Key(address.address));
  }
  for (const auto& [name, instance] : table.instances()) AddInstance(name, instance, links);
  owners_.clear();
  IndexByLink(links);
}

void Forwarding::AddInstance(const std::string& name, const Instance& instance,
                             const Links& links) {
  const VrfIndex vrf = FindVrf(instance.vrf, links).value_or(kUnknownVrf);
  const auto device = links.links.find(vrf);
  const std::string device_name = device == links.links.end() ? "" : device->second.name;
  const Service& service = services_.emplace_back(
      Service{.instance = name,
              .vrf = vrf,
              .vrf_device = device_name,
              .servers = {instance.servers.begin(), instance.servers.end()}});
  for (const auto& [if_name, interface] : instance.interfaces) {
    AddPort(&service, if_name, instance, links);
  }
}

void Forwarding::AddPort(const Service* service, const std::string& name, const Instance& instance,
                         const Links& links) {
  const L3Interface& interface = instance.interfaces.at(name);
  const auto override = instance.if_options.find(name);
  Port& port = ports_.emplace_back();
  port.service = service;
  port.name = name;
  port.vlan = interface.vlan;
  port.relay.giaddr = interface.address.value_or(nettypes::IPv4Addr());
  SetSettings(instance.options,
              override != instance.if_options.end() ? override->second : Options(), port.relay);
  Attach(port, links);
  if (!port.usable()) return;
  vrfs_.try_emplace(service->vrf, service->vrf_device);
  const auto index = static_cast<PortIndex>(ports_.size() - 1);
  if (!by_address_.try_emplace(Key(service->vrf, port.relay.giaddr), index).second) {
    port.state = PortState::kShadowed;
  }
}

void Forwarding::Attach(Port& port, const Links& links) {
  if (port.service->vrf == kUnknownVrf) {
    port.state = PortState::kNoVrf;
    return;
  }
  if (port.relay.giaddr.is_unspecified()) {
    port.state = PortState::kNoAddress;
    return;
  }
  const auto [first, last] = owners_.equal_range(Key(port.relay.giaddr));
  const auto owner = std::find_if(first, last, [&](const auto& entry) {
    return links.VrfOf(links.links.at(entry.second->link)) == port.service->vrf;
  });
  if (owner == last) {
    port.state = PortState::kMissing;
    return;
  }
  const Link& link = links.links.at(owner->second->link);
  port.state = link.up ? PortState::kUp : PortState::kDown;
  port.link = link.index;
  port.link_name = link.name;
  port.broadcast = owner->second->broadcast;
  port.relay.information = MakeInformation(port.name, port.vlan, link.mac);
}

// A link's ports in the order of its addresses, so that the first is its primary one's.
void Forwarding::IndexByLink(const Links& links) {
  for (const LinkAddress& address : links.addresses) {
    const auto link = links.links.find(address.link);
    if (link == links.links.end()) continue;
    const auto found = by_address_.find(Key(links.VrfOf(link->second), address.address));
    if (found == by_address_.end() || ports_[found->second].link != address.link) continue;
    by_link_[address.link].push_back(found->second);
  }
}

const Port* Forwarding::FindByLink(int link, nettypes::IPv4Addr destination) const {
  const auto found = by_link_.find(link);
  if (found == by_link_.end()) return nullptr;
  const Port& first = ports_[found->second.front()];
  if (found->second.size() == 1) return &first;
  const Port* const addressed = FindByAddress(first.service->vrf, destination);
  return addressed != nullptr && addressed->link == link ? addressed : &first;
}

const Port* Forwarding::FindByAddress(VrfIndex vrf, nettypes::IPv4Addr giaddr) const {
  const auto found = by_address_.find(Key(vrf, giaddr));
  return found == by_address_.end() ? nullptr : &ports_[found->second];
}

const std::unordered_set<std::uint32_t>& Forwarding::OwnAddresses(VrfIndex vrf) const {
  static const std::unordered_set<std::uint32_t> kNone;
  const auto found = own_addresses_.find(vrf);
  return found == own_addresses_.end() ? kNone : found->second;
}

bool Forwarding::IsForUs(const Port& port, nettypes::IPv4Addr destination) const {
  return Key(destination) == INADDR_BROADCAST || destination == port.broadcast ||
         OwnAddresses(port.service->vrf).contains(Key(destination));
}

}  // namespace dhcp_manager
