#include "tests/fakes/fake_dhcp_user.h"

#include "tests/fakes/journal.h"

namespace fakes {
namespace {

std::string ArgumentText(const std::string& text) { return text; }
std::string ArgumentText(nettypes::IPv4Addr address) { return address.to_string(); }
std::string ArgumentText(bool value) { return value ? "true" : "false"; }
std::string ArgumentText(limid_t id) { return std::to_string(id); }
std::string ArgumentText(std::uint16_t number) { return std::to_string(number); }
std::string ArgumentText(dhcp_relay::Policy policy) {
  return std::to_string(static_cast<std::int32_t>(policy));
}

template <typename... Arguments>
std::string CallText(std::string operation, const Arguments&... arguments) {
  ((operation += " " + ArgumentText(arguments)), ...);
  return operation;
}

template <typename... Arguments>
void Note(const char* operation, const Arguments&... arguments) {
  Journal::Get().Add("DhcpUser::" + CallText(operation, arguments...));
}

}  // namespace

DhcpUserState& DhcpUserState::Get() {
  static DhcpUserState* const state = new DhcpUserState;
  return *state;
}

ClientDouble::~ClientDouble() { Journal::Get().Add("~ClientDouble"); }

void ClientDouble::AddServer(const std::string& instance, nettypes::IPv4Addr server) {
  calls.push_back(CallText("AddServer", instance, server));
}

void ClientDouble::DeleteServer(const std::string& instance, nettypes::IPv4Addr server) {
  calls.push_back(CallText("DeleteServer", instance, server));
}

void ClientDouble::DeleteInstance(const std::string& instance) {
  calls.push_back(CallText("DeleteInstance", instance));
}

void ClientDouble::AddL3Interface(const std::string& instance, const std::string& interface) {
  calls.push_back(CallText("AddL3Interface", instance, interface));
}

void ClientDouble::SetL3InterfaceAddress(const std::string& instance, const std::string& interface,
                                         nettypes::IPv4Addr address) {
  calls.push_back(CallText("SetL3InterfaceAddress", instance, interface, address));
}

void ClientDouble::SetVrf(const std::string& instance, limid_t vrf) {
  calls.push_back(CallText("SetVrf", instance, vrf));
}

void ClientDouble::SetL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                      std::uint16_t vlan) {
  calls.push_back(CallText("SetL3InterfaceVlan", instance, interface, vlan));
}

void ClientDouble::DeleteL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                         std::uint16_t vlan) {
  calls.push_back(CallText("DeleteL3InterfaceVlan", instance, interface, vlan));
}

void ClientDouble::DeleteL3Interface(const std::string& instance, const std::string& interface) {
  calls.push_back(CallText("DeleteL3Interface", instance, interface));
}

void ClientDouble::SetTrusted(const std::string& instance, bool trusted) {
  calls.push_back(CallText("SetTrusted", instance, trusted));
}

void ClientDouble::SetOption(const std::string& instance, bool option) {
  calls.push_back(CallText("SetOption", instance, option));
}

void ClientDouble::SetCheck(const std::string& instance, bool check) {
  calls.push_back(CallText("SetCheck", instance, check));
}

void ClientDouble::SetPolicy(const std::string& instance, dhcp_relay::Policy policy) {
  calls.push_back(CallText("SetPolicy", instance, policy));
}

void ClientDouble::AddIfOption(const std::string& instance, const std::string& if_option) {
  calls.push_back(CallText("AddIfOption", instance, if_option));
}

void ClientDouble::DeleteIfOption(const std::string& instance, const std::string& if_option) {
  calls.push_back(CallText("DeleteIfOption", instance, if_option));
}

void ClientDouble::SetIfOptionTrusted(const std::string& instance, const std::string& if_option,
                                      bool trusted) {
  calls.push_back(CallText("SetIfOptionTrusted", instance, if_option, trusted));
}

void ClientDouble::SetIfOptionOption(const std::string& instance, const std::string& if_option,
                                     bool option) {
  calls.push_back(CallText("SetIfOptionOption", instance, if_option, option));
}

void ClientDouble::SetIfOptionCheck(const std::string& instance, const std::string& if_option,
                                    bool check) {
  calls.push_back(CallText("SetIfOptionCheck", instance, if_option, check));
}

void ClientDouble::SetIfOptionPolicy(const std::string& instance, const std::string& if_option,
                                     dhcp_relay::Policy policy) {
  calls.push_back(CallText("SetIfOptionPolicy", instance, if_option, policy));
}

}  // namespace fakes

namespace dhcp_relay {

using fakes::DhcpUserState;
using fakes::Journal;
using fakes::Note;

class DhcpUser::Impl {};

DhcpUser::DhcpUser(vxmw_t* mw, CallbackIf* callbacks) {
  Journal::Get().Add("DhcpUser");
  DhcpUserState::Get().mw = mw;
  DhcpUserState::Get().callbacks = callbacks;
}

DhcpUser::~DhcpUser() {
  Journal::Get().Add("~DhcpUser");
  if (DhcpUserState::Get().on_destroy) DhcpUserState::Get().on_destroy();
}

void DhcpUser::AddServer(const std::string& instance, nettypes::IPv4Addr server) {
  Note("AddServer", instance, server);
}

void DhcpUser::DeleteServer(const std::string& instance, nettypes::IPv4Addr server) {
  Note("DeleteServer", instance, server);
}

void DhcpUser::DeleteInstance(const std::string& instance) { Note("DeleteInstance", instance); }

void DhcpUser::AddL3Interface(const std::string& instance, const std::string& interface) {
  Note("AddL3Interface", instance, interface);
}

void DhcpUser::SetL3InterfaceAddress(const std::string& instance, const std::string& interface,
                                     nettypes::IPv4Addr address) {
  Note("SetL3InterfaceAddress", instance, interface, address);
}

void DhcpUser::SetVrf(const std::string& instance, limid_t vrf) { Note("SetVrf", instance, vrf); }

void DhcpUser::SetL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                  std::uint16_t vlan) {
  Note("SetL3InterfaceVlan", instance, interface, vlan);
}

void DhcpUser::DeleteL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                     std::uint16_t vlan) {
  Note("DeleteL3InterfaceVlan", instance, interface, vlan);
}

void DhcpUser::DeleteL3Interface(const std::string& instance, const std::string& interface) {
  Note("DeleteL3Interface", instance, interface);
}

void DhcpUser::SetTrusted(const std::string& instance, bool trusted) {
  Note("SetTrusted", instance, trusted);
}

void DhcpUser::SetOption(const std::string& instance, bool option) {
  Note("SetOption", instance, option);
}

void DhcpUser::SetCheck(const std::string& instance, bool check) {
  Note("SetCheck", instance, check);
}

void DhcpUser::SetPolicy(const std::string& instance, Policy policy) {
  Note("SetPolicy", instance, policy);
}

void DhcpUser::AddIfOption(const std::string& instance, const std::string& if_option) {
  Note("AddIfOption", instance, if_option);
}

void DhcpUser::DeleteIfOption(const std::string& instance, const std::string& if_option) {
  Note("DeleteIfOption", instance, if_option);
}

void DhcpUser::SetIfOptionTrusted(const std::string& instance, const std::string& if_option,
                                  bool trusted) {
  Note("SetIfOptionTrusted", instance, if_option, trusted);
}

void DhcpUser::SetIfOptionOption(const std::string& instance, const std::string& if_option,
                                 bool option) {
  Note("SetIfOptionOption", instance, if_option, option);
}

void DhcpUser::SetIfOptionCheck(const std::string& instance, const std::string& if_option,
                                bool check) {
  Note("SetIfOptionCheck", instance, if_option, check);
}

void DhcpUser::SetIfOptionPolicy(const std::string& instance, const std::string& if_option,
                                 Policy policy) {
  Note("SetIfOptionPolicy", instance, if_option, policy);
}

}  // namespace dhcp_relay
