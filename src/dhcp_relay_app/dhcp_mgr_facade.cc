#include "src/dhcp_relay_app/dhcp_mgr_facade.h"

#include <cstdint>
#include <string>
#include <utility>

#include <limidmgr/limidmgr.h>

namespace dhcp_relay_app {
namespace {

constexpr limid_t kNoVrf = 0;

bool IsConfigured(TriState value) { return value != TriState::kUndefined; }
bool IsConfigured(DhcpRelayPolicy policy) { return policy != DhcpRelayPolicy::kUndefined; }

bool IsYes(TriState value) { return value == TriState::kYes; }

dhcp_relay::Policy ToManager(DhcpRelayPolicy policy) {
  return static_cast<dhcp_relay::Policy>(policy);
}

}  // namespace

DhcpMgrFacade::DhcpMgrFacade(vxmw_t* mw, std::shared_ptr<Mediator> mediator,
                             std::shared_ptr<dhcp_relay::DhcpUser> user)
    : Component(std::move(mediator)), user_(std::move(user)) {
  if (!user_) {
    user_ = std::make_shared<dhcp_relay::DhcpUser>(
        mw, static_cast<dhcp_relay::DhcpUser::CallbackIf*>(this));
  }
}

// The client must be gone while the facade can still be called back.
DhcpMgrFacade::~DhcpMgrFacade() { user_.reset(); }

void DhcpMgrFacade::HandleCommand(Command* command) {
  const auto* intf_cmd = dynamic_cast<const DhcpRelayIntfCmd*>(command);
  if (intf_cmd == nullptr) return;
  if (intf_cmd->is_delete) {
    SendDelete(intf_cmd->intf);
  } else {
    SendSet(intf_cmd->intf);
  }
}

void DhcpMgrFacade::OnDumpRequest() {
  DhcpDumpRequest request;
  if (mediator()) mediator()->Notify(this, &request);
}

void DhcpMgrFacade::OnDumpCancel() {
  DhcpDumpCancel cancel;
  if (mediator()) mediator()->Notify(this, &cancel);
}

void DhcpMgrFacade::SendSet(const DhcpRelayIntf& intf) {
  if (intf.should_delete()) return;
  for (const nettypes::IPv4Addr& server : intf.added_server_addrs()) {
    user_->AddServer(intf.name(), server);
  }
  SendInstanceOptions(intf);
  for (const DhcpRelayL3Intf& l3_intf : intf.l3_intfs()) {
    if (!l3_intf.should_delete()) SendL3Interface(intf.name(), l3_intf);
  }
  for (const DhcpRelayIfOption& if_option : intf.if_options()) {
    if (!if_option.should_delete()) SendIfOption(intf.name(), if_option);
  }
  if (intf.vrf_id() != 0) SendVrf(intf.name(), intf.vrf_id());
}

void DhcpMgrFacade::SendInstanceOptions(const DhcpRelayIntf& intf) {
  if (IsConfigured(intf.check)) user_->SetCheck(intf.name(), IsYes(intf.check));
  if (IsConfigured(intf.trusted)) user_->SetTrusted(intf.name(), IsYes(intf.trusted));
  if (IsConfigured(intf.option)) user_->SetOption(intf.name(), IsYes(intf.option));
  if (IsConfigured(intf.policy)) user_->SetPolicy(intf.name(), ToManager(intf.policy));
}

void DhcpMgrFacade::SendL3Interface(const std::string& instance, const DhcpRelayL3Intf& l3_intf) {
  user_->AddL3Interface(instance, l3_intf.name());
  if (l3_intf.added_vlan_id() != 0) {
    user_->SetL3InterfaceVlan(instance, l3_intf.name(), l3_intf.added_vlan_id());
  }
  if (!l3_intf.ipv4_addr().is_unspecified()) {
    user_->SetL3InterfaceAddress(instance, l3_intf.name(), l3_intf.ipv4_addr());
  }
}

void DhcpMgrFacade::SendIfOption(const std::string& instance, const DhcpRelayIfOption& if_option) {
  const std::string& name = if_option.name();
  if (IsConfigured(if_option.check)) {
    user_->SetIfOptionCheck(instance, name, IsYes(if_option.check));
  }
  if (IsConfigured(if_option.trusted)) {
    user_->SetIfOptionTrusted(instance, name, IsYes(if_option.trusted));
  }
  if (IsConfigured(if_option.option)) {
    user_->SetIfOptionOption(instance, name, IsYes(if_option.option));
  }
  if (IsConfigured(if_option.policy)) {
    user_->SetIfOptionPolicy(instance, name, ToManager(if_option.policy));
  }
}

void DhcpMgrFacade::SendVrf(const std::string& instance, std::uint32_t vrf_id) {
  limid_t identifier = kNoVrf;
  limid_from_intfname_suffix(&identifier, std::to_string(vrf_id).c_str(), limid_type_vrf);
  user_->SetVrf(instance, identifier);
}

void DhcpMgrFacade::SendDelete(const DhcpRelayIntf& intf) {
  if (intf.should_delete()) {
    user_->DeleteInstance(intf.name());
    return;
  }
  if (intf.vrf_deleted()) user_->SetVrf(intf.name(), kNoVrf);
  for (const nettypes::IPv4Addr& server : intf.deleted_server_addrs()) {
    user_->DeleteServer(intf.name(), server);
  }
  for (const DhcpRelayL3Intf& l3_intf : intf.l3_intfs()) {
    if (l3_intf.deleted_vlan_id() != 0) {
      user_->DeleteL3InterfaceVlan(intf.name(), l3_intf.name(), l3_intf.deleted_vlan_id());
    }
    if (l3_intf.should_delete()) user_->DeleteL3Interface(intf.name(), l3_intf.name());
  }
  for (const DhcpRelayIfOption& if_option : intf.if_options()) {
    if (if_option.should_delete()) user_->DeleteIfOption(intf.name(), if_option.name());
  }
}

}  // namespace dhcp_relay_app
