#include "dhcp_manager/table/forwarding.h"

#include <algorithm>
#include <utility>

#include <limidmgr/limidmgr.h>

namespace dhcp_manager {
namespace {

std::uint64_t Key(VrfIfindex vrf, nettypes::IPv4Addr address) {
  constexpr unsigned kAddressBits = 32;
  return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(vrf)) << kAddressBits) |
         address.host_order();
}

// A value that the override leaves unset is the instance's, else the data model's default.
template <typename Value>
Value Effective(const std::optional<Value>& override, const std::optional<Value>& instance,
                Value model_default) {
  return override ? *override : instance.value_or(model_default);
}

void SetSettings(const Settings& instance, const Settings& override, RelayParameters& relay) {
  relay.check = Effective(override.check, instance.check, false);
  relay.trusted = Effective(override.trusted, instance.trusted, false);
  relay.option = Effective(override.option, instance.option, false);
  relay.policy = Effective(override.policy, instance.policy, dhcp_relay::wire::Policy::kKeep);
}

std::optional<VrfIfindex> FindVrf(const std::optional<limid_t>& vrf, const Links& links) {
  if (!vrf || *vrf == 0) return kDefaultVrf;
  return links.FindVrf(limid_number_of(*vrf));
}

}  // namespace

Forwarding::Forwarding(const RelayTable& table, const Links& links, const Trust& trust)
    : trust_(trust) {
  for (const LinkAddress& address : links.addresses) {
    const auto link = links.links.find(address.link);
    if (link == links.links.end()) continue;
    owners_.emplace(address.address.host_order(), &address);
    own_addresses_[links.VrfOf(link->second)].insert(address.address.host_order());
  }
  for (const auto& [name, instance] : table.instances()) AddInstance(name, instance, links);
  owners_.clear();
  IndexByLink(links);
}

void Forwarding::AddInstance(const std::string& name, const Instance& instance,
                             const Links& links) {
  const VrfIfindex vrf = FindVrf(instance.vrf, links).value_or(kUnknownVrf);
  const auto device = links.links.find(vrf);
  const std::string device_name = device == links.links.end() ? "" : device->second.name;
  const RelayInstance& relay_instance = instances_.emplace_back(
      RelayInstance{.name = name,
                    .vrf = vrf,
                    .vrf_device = device_name,
                    .servers = {instance.servers.begin(), instance.servers.end()}});
  for (const auto& [if_name, interface] : instance.interfaces) {
    AddInterface(relay_instance, if_name, instance, links);
  }
}

void Forwarding::AddInterface(const RelayInstance& relay_instance, const std::string& name,
                              const Instance& instance, const Links& links) {
  const L3Interface& configured = instance.interfaces.at(name);
  const auto override = instance.overrides.find(name);
  RelayInterface& interface = interfaces_.emplace_back();
  interface.instance = &relay_instance;
  interface.name = name;
  interface.vlan = configured.vlan;
  interface.relay.giaddr = configured.address.value_or(nettypes::IPv4Addr());
  interface.relay.drop_foreign_giaddr = trust_.drop_foreign_giaddr;
  SetSettings(instance.settings,
              override != instance.overrides.end() ? override->second : Settings(),
              interface.relay);
  Attach(interface, links);
  if (!interface.usable()) return;
  vrfs_.try_emplace(relay_instance.vrf, relay_instance.vrf_device);
  const auto index = static_cast<InterfaceIndex>(interfaces_.size() - 1);
  if (!by_address_.try_emplace(Key(relay_instance.vrf, interface.relay.giaddr), index).second) {
    interface.state = InterfaceState::kDuplicateAddress;
  }
}

void Forwarding::Attach(RelayInterface& interface, const Links& links) {
  if (interface.instance->vrf == kUnknownVrf) {
    interface.state = InterfaceState::kNoVrf;
    return;
  }
  if (interface.relay.giaddr.is_unspecified()) {
    interface.state = InterfaceState::kNoAddress;
    return;
  }
  const LinkAddress* const owned = FindOwner(interface, links);
  if (owned == nullptr) {
    interface.state = InterfaceState::kMissing;
    return;
  }
  const Link& link = links.links.at(owned->link);
  interface.state = link.up ? InterfaceState::kUp : InterfaceState::kDown;
  interface.link = link.index;
  interface.link_name = link.name;
  interface.broadcast = owned->broadcast;
  interface.directed_broadcast = owned->DirectedBroadcast();
  interface.relay.relay_agent_information =
      MakeRelayAgentInformation(interface.name, interface.vlan, link.mac);
}

const LinkAddress* Forwarding::FindOwner(const RelayInterface& interface,
                                         const Links& links) const {
  const auto rank = [](const Link& link) { return std::pair(!link.up, link.index); };
  const LinkAddress* owner = nullptr;
  const auto [first, last] = owners_.equal_range(interface.relay.giaddr.host_order());
  for (auto entry = first; entry != last; ++entry) {
    const Link& link = links.links.at(entry->second->link);
    if (links.VrfOf(link) != interface.instance->vrf) continue;
    if (owner == nullptr || rank(link) < rank(links.links.at(owner->link))) owner = entry->second;
  }
  return owner;
}

// A link's interfaces in the order of its addresses: the oldest first, secondary ones last.
void Forwarding::IndexByLink(const Links& links) {
  for (const LinkAddress& address : links.addresses) {
    const auto link = links.links.find(address.link);
    if (link == links.links.end()) continue;
    const auto found = by_address_.find(Key(links.VrfOf(link->second), address.address));
    if (found == by_address_.end() || interfaces_[found->second].link != address.link) continue;
    by_link_[address.link].push_back(found->second);
  }
}

const RelayInterface* Forwarding::FindByLink(int link, nettypes::IPv4Addr destination) const {
  const auto found = by_link_.find(link);
  if (found == by_link_.end()) return nullptr;
  const RelayInterface& first = interfaces_[found->second.front()];
  if (found->second.size() == 1) return &first;
  const RelayInterface* const addressed = FindByAddress(first.instance->vrf, destination);
  if (addressed != nullptr && addressed->link == link) return addressed;
  const auto in_subnet = std::ranges::find_if(found->second, [&](InterfaceIndex index) {
    return interfaces_[index].IsBroadcast(destination);
  });
  return in_subnet == found->second.end() ? &first : &interfaces_[*in_subnet];
}

const RelayInterface* Forwarding::FindByAddress(VrfIfindex vrf, nettypes::IPv4Addr giaddr) const {
  const auto found = by_address_.find(Key(vrf, giaddr));
  return found == by_address_.end() ? nullptr : &interfaces_[found->second];
}

const AddressSet& Forwarding::OwnAddresses(VrfIfindex vrf) const {
  static const AddressSet kNone;
  const auto found = own_addresses_.find(vrf);
  return found == own_addresses_.end() ? kNone : found->second;
}

bool Forwarding::IsForUs(const RelayInterface& interface, nettypes::IPv4Addr destination) const {
  return destination.host_order() == INADDR_BROADCAST || interface.IsBroadcast(destination) ||
         OwnAddresses(interface.instance->vrf).contains(destination.host_order());
}

}  // namespace dhcp_manager
