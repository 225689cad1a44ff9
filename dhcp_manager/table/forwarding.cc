#include "dhcp_manager/table/forwarding.h"

#include <algorithm>
#include <utility>

#include <limidmgr/limidmgr.h>

namespace dhcp_manager {
namespace {

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
  for (const auto& [name, instance] : table.instances()) AddInstance(name, instance, links);
  links.ForEachAddress([this](const VrfAddress& address) { UpdateOwnAddresses(address, true); });
  std::unordered_set<int> links_to_index;
  for (const auto& [address, interfaces] : by_address_) {
    UpdateAddress(links, address, links_to_index);
  }
  for (const int link : links_to_index) IndexLink(links, link);
}

Forwarding::Updated Forwarding::Update(const Links& links, const Links::Changes& changes) {
  Updated updated;
  std::unordered_set<int> links_to_index = changes.links;
  for (const VrfAddress& address : changes.addresses) {
    UpdateOwnAddresses(address, links.FindOwner(address) != nullptr);
    const Updated some = UpdateAddress(links, address, links_to_index);
    updated.interfaces += some.interfaces;
    updated.vrfs = updated.vrfs || some.vrfs;
  }
  for (const int link : links_to_index) IndexLink(links, link);
  return updated;
}

void Forwarding::AddInstance(const std::string& name, const Instance& instance,
                             const Links& links) {
  const VrfIfindex vrf = FindVrf(instance.vrf, links).value_or(kUnknownVrf);
  const Link* const device = links.Find(vrf);
  const RelayInstance& relay_instance = instances_.emplace_back(
      RelayInstance{.name = name,
                    .vrf = vrf,
                    .vrf_device = device == nullptr ? "" : device->name,
                    .servers = {instance.servers.begin(), instance.servers.end()}});
  own_addresses_.try_emplace(vrf);
  for (const auto& [if_name, interface] : instance.interfaces) {
    AddInterface(relay_instance, if_name, instance);
  }
}

void Forwarding::AddInterface(const RelayInstance& relay_instance, const std::string& name,
                              const Instance& instance) {
  const L3Interface& configured = instance.interfaces.at(name);
  const auto override = instance.overrides.find(name);
  const auto index = static_cast<InterfaceIndex>(interfaces_.size());
  RelayInterface& interface = interfaces_.emplace_back();
  interface.instance = &relay_instance;
  interface.name = name;
  interface.vlan = configured.vlan;
  interface.relay.giaddr = configured.address.value_or(nettypes::IPv4Addr());
  interface.relay.drop_foreign_giaddr = trust_.drop_foreign_giaddr;
  SetSettings(instance.settings,
              override != instance.overrides.end() ? override->second : Settings(),
              interface.relay);
  if (relay_instance.vrf == kUnknownVrf) {
    interface.state = InterfaceState::kNoVrf;
  } else if (interface.relay.giaddr.is_unspecified()) {
    interface.state = InterfaceState::kNoAddress;
  } else {
    by_address_[{relay_instance.vrf, interface.relay.giaddr}].push_back(index);
  }
}

Forwarding::Updated Forwarding::UpdateAddress(const Links& links, const VrfAddress& address,
                                              std::unordered_set<int>& links_to_index) {
  Updated updated;
  const auto found = by_address_.find(address);
  if (found == by_address_.end()) return updated;
  const LinkAddress* const owner = links.FindOwner(address);
  RelayInterface& first = interfaces_[found->second.front()];
  links_to_index.insert(first.link);
  if (owner != nullptr) links_to_index.insert(owner->link);
  for (const InterfaceIndex index : found->second) {
    RelayInterface& interface = interfaces_[index];
    updated.vrfs = Attach(interface, links, owner) || updated.vrfs;
    if (&interface != &first && owner != nullptr) {
      interface.state = InterfaceState::kDuplicateAddress;
    }
  }
  updated.interfaces = found->second.size();
  return updated;
}

bool Forwarding::Attach(RelayInterface& interface, const Links& links, const LinkAddress* owner) {
  const bool was_usable = interface.link != 0;
  const Link link = owner == nullptr ? Link{} : *links.Find(owner->link);
  const LinkAddress owned = owner == nullptr ? LinkAddress{} : *owner;
  interface.state = link.up ? InterfaceState::kUp : InterfaceState::kDown;
  if (owner == nullptr) interface.state = InterfaceState::kMissing;
  interface.link = link.index;
  interface.link_name = link.name;
  interface.broadcast = owned.broadcast;
  interface.directed_broadcast = owned.DirectedBroadcast();
  interface.relay.relay_agent_information.clear();
  if (owner != nullptr) {
    interface.relay.relay_agent_information =
        MakeRelayAgentInformation(interface.name, interface.vlan, link.mac);
  }
  const bool usable = owner != nullptr;
  return was_usable != usable && CountUsable(*interface.instance, usable);
}

bool Forwarding::CountUsable(const RelayInstance& instance, bool usable) {
  std::size_t& count = usable_[instance.vrf];
  count = usable ? count + 1 : count - 1;
  if (count > 1 || (count == 1 && !usable)) return false;
  if (usable) {
    vrfs_.emplace(instance.vrf, instance.vrf_device);
  } else {
    vrfs_.erase(instance.vrf);
  }
  return true;
}

void Forwarding::UpdateOwnAddresses(const VrfAddress& address, bool owned) {
  AddressSet& addresses = own_addresses_[address.vrf];
  if (owned) {
    addresses.insert(address.address.host_order());
  } else {
    addresses.erase(address.address.host_order());
  }
}

void Forwarding::IndexLink(const Links& links, int index) {
  std::vector<InterfaceIndex> interfaces;
  const Link* const link = links.Find(index);
  for (const LinkAddress& address : links.AddressesOf(index)) {
    if (link == nullptr) break;
    const auto found = by_address_.find({links.VrfOf(*link), address.address});
    if (found == by_address_.end()) continue;
    const InterfaceIndex first = found->second.front();
    if (interfaces_[first].link == index) interfaces.push_back(first);
  }
  if (interfaces.empty()) {
    by_link_.erase(index);
  } else {
    by_link_[index] = std::move(interfaces);
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
  const auto found = by_address_.find({vrf, giaddr});
  if (found == by_address_.end()) return nullptr;
  const RelayInterface& interface = interfaces_[found->second.front()];
  return interface.usable() ? &interface : nullptr;
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
