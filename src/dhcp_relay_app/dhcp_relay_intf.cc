#include "src/dhcp_relay_app/dhcp_relay_intf.h"

#include <algorithm>
#include <map>

namespace dhcp_relay_app {
namespace {

template <typename Entry>
Entry& GetOrAdd(std::list<Entry>& entries, const std::string& name) {
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [&name](const Entry& entry) { return entry.name() == name; });
  return found != entries.end() ? *found : entries.emplace_back(name);
}

const char* BoolText(bool value) { return value ? "true" : "false"; }

const std::string& TriStateText(TriState value) {
  static const std::map<TriState, std::string> texts = {
      {TriState::kYes, "yes"}, {TriState::kNo, "no"}, {TriState::kUndefined, "undefined"}};
  return texts.at(value);
}

const char* PolicyText(DhcpRelayPolicy policy) {
  switch (policy) {
    case DhcpRelayPolicy::kDrop:
      return "drop";
    case DhcpRelayPolicy::kKeep:
      return "keep";
    case DhcpRelayPolicy::kReplace:
      return "replace";
    default:
      return "undefined";
  }
}

template <typename Record>
void AppendOptions(const Record& record, std::string& text) {
  text.append("\tTrusted: ").append(TriStateText(record.trusted)).append("\n");
  text.append("\tCheck: ").append(TriStateText(record.check)).append("\n");
  text.append("\tOption: ").append(TriStateText(record.option)).append("\n");
  text.append("\tPolicy: ").append(PolicyText(record.policy)).append("\n");
}

void AppendAddresses(const char* heading, const std::list<nettypes::IPv4Addr>& addresses,
                     std::string& text) {
  if (addresses.empty()) return;
  text.append(heading);
  for (const nettypes::IPv4Addr& address : addresses) {
    text.append("\t\t").append(address.to_string()).append("\n");
  }
}

template <typename Entry>
void AppendEntries(const char* heading, const std::list<Entry>& entries, std::string& text) {
  if (entries.empty()) return;
  text.append(heading);
  for (const Entry& entry : entries) text.append(entry.ToString());
}

}  // namespace

bool DhcpRelayIfOption::operator==(const DhcpRelayIfOption& other) const {
  return name_ == other.name_ && should_delete_ == other.should_delete_ &&
         trusted == other.trusted && check == other.check && option == other.option &&
         policy == other.policy;
}

std::string DhcpRelayIfOption::ToString() const {
  std::string text = "\tDHCP Relay IfOption name: ";
  text.append(name_).append("\n");
  text.append("\tShould delete: ").append(BoolText(should_delete_)).append("\n");
  AppendOptions(*this, text);
  return text;
}

bool DhcpRelayL3Intf::operator==(const DhcpRelayL3Intf& other) const {
  return name_ == other.name_ && should_delete_ == other.should_delete_ &&
         added_vlan_id_ == other.added_vlan_id_ && deleted_vlan_id_ == other.deleted_vlan_id_ &&
         ipv4_addr_ == other.ipv4_addr_;
}

std::string DhcpRelayL3Intf::ToString() const {
  std::string text = "\t\tDHCP L3 Interface name: ";
  text.append(name_).append("\n");
  text.append("\t\tShould delete: ").append(BoolText(should_delete_)).append("\n");
  text.append("\t\tAdded VLAN ID: ").append(std::to_string(added_vlan_id_)).append("\n");
  text.append("\t\tDeleted VLAN ID: ").append(std::to_string(deleted_vlan_id_)).append("\n");
  text.append("\t\tIPv4 Address: ").append(ipv4_addr_.to_string()).append("\n");
  return text;
}

DhcpRelayL3Intf& DhcpRelayIntf::GetOrAddL3Intf(const std::string& name) {
  return GetOrAdd(l3_intfs_, name);
}

DhcpRelayIfOption& DhcpRelayIntf::GetOrAddIfOption(const std::string& name) {
  return GetOrAdd(if_options_, name);
}

bool DhcpRelayIntf::operator==(const DhcpRelayIntf& other) const {
  return name_ == other.name_ && should_delete_ == other.should_delete_ &&
         vrf_id_ == other.vrf_id_ && vrf_deleted_ == other.vrf_deleted_ &&
         added_server_addrs_ == other.added_server_addrs_ &&
         deleted_server_addrs_ == other.deleted_server_addrs_ && l3_intfs_ == other.l3_intfs_ &&
         if_options_ == other.if_options_ && trusted == other.trusted && check == other.check &&
         option == other.option && policy == other.policy;
}

std::string DhcpRelayIntf::ToString() const {
  std::string text = "DHCP Relay name: ";
  text.append(name_).append("\n");
  AppendAddresses("\tAdded Server Addresses: \n", added_server_addrs_, text);
  AppendAddresses("\tDeleted Server Addresses: \n", deleted_server_addrs_, text);
  text.append("\tShould delete: ").append(BoolText(should_delete_)).append("\n");
  AppendOptions(*this, text);
  AppendEntries("\tDHCP L3 Interface list:\n", l3_intfs_, text);
  AppendEntries("\tDHCP IfOption list:\n", if_options_, text);
  return text;
}

}  // namespace dhcp_relay_app
