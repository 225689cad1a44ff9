#include "src/dhcp_relay_app/dhcp_relay_cfg_handler.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>

#include <confd_cdb.h>
#include <nettypes/ipv4_addr.h>
#include <vx/schema_hash.h>

#include "src/dhcp_relay_app/cdb_change.h"
#include "src/dhcp_relay_app/cdb_paths.h"
#include "src/dhcp_relay_app/cdb_read.h"
#include "src/lib/logger.h"

namespace dhcp_relay_app {
namespace {

constexpr char kSourcePath[] = "src/dhcp_relay_app/dhcp_relay_cfg_handler";

constexpr std::int32_t kSubscriptionPriority = 3;

}  // namespace

DhcpRelayCfgHandler::DhcpRelayCfgHandler(vxmw_t* /*mw*/, std::shared_ptr<Mediator> mediator)
    : Component(std::move(mediator)) {
  LOG_ENTRY_POINT();
  using std::placeholders::_1, std::placeholders::_2, std::placeholders::_3, std::placeholders::_4;
  subscription_points_.push_back(
      {kSubscriptionPriority, static_cast<std::int32_t>(vx_schema::kNsDhcpRelay), kRelayPath,
       ITER_WANT_PREV, std::bind(&DhcpRelayCfgHandler::HandleCfg, this, _1, _2, _3, _4)});
  subscription_points_.push_back(
      {kSubscriptionPriority, static_cast<std::int32_t>(vx_schema::kNsInterface), kL3Ipv4Path,
       ITER_WANT_PREV, std::bind(&DhcpRelayCfgHandler::HandleL3Ipv4Cfg, this, _1, _2, _3, _4)});
  subscription_points_.push_back(
      {kSubscriptionPriority, static_cast<std::int32_t>(vx_schema::kNsInterface), kL3VlanPath,
       ITER_WANT_PREV, std::bind(&DhcpRelayCfgHandler::HandleL3VlanCfg, this, _1, _2, _3, _4)});
}

DhcpRelayCfgHandler::~DhcpRelayCfgHandler() = default;

void DhcpRelayCfgHandler::HandleCommand(Command* command) {
  if (command == nullptr) return;
  if (const auto* request = dynamic_cast<const DhcpDumpRequest*>(command)) {
    ProcessDumpRequest(*request);
  } else if (const auto* cancel = dynamic_cast<const DhcpDumpCancel*>(command)) {
    ProcessDumpCancel(*cancel);
  }
}

const std::vector<vxconfd::SubscriptionPoint>& DhcpRelayCfgHandler::GetSubscriptionPoints() const {
  return subscription_points_;
}

void DhcpRelayCfgHandler::LoadInitialConfig() {
  LOG_ENTRY_POINT();
  if (!dump_pending_) return;
  relay_intfs_.clear();
  DumpConfig();
}

void DhcpRelayCfgHandler::ApplyInitialConfig() {
  LOG_ENTRY_POINT();
  if (!dump_pending_) return;
  SendSetConfig();
  dump_pending_ = false;
}

void DhcpRelayCfgHandler::StartCommit() {
  LOG_ENTRY_POINT();
  relay_intfs_.clear();
}

void DhcpRelayCfgHandler::ApplyCommitConfig() {
  LOG_ENTRY_POINT();
  SendDeleteConfig();
  SendSetConfig();
}

void DhcpRelayCfgHandler::ProcessDumpRequest(const DhcpDumpRequest& /*request*/) {
  LOG_ENTRY_POINT();
  dump_pending_ = true;
  if (interface_ == nullptr || !interface_->connected()) return;
  relay_intfs_.clear();
  DumpConfig();
  SendSetConfig();
  dump_pending_ = false;
}

void DhcpRelayCfgHandler::ProcessDumpCancel(const DhcpDumpCancel& /*cancel*/) {
  LOG_ENTRY_POINT();
  dump_pending_ = false;
}

confd_iter_ret DhcpRelayCfgHandler::HandleCfg(confd_hkeypath_t* kp, confd_iter_op op,
                                              confd_value_t* old_value, confd_value_t* new_value) {
  char path[kKeyTextSize] = {};
  confd_pp_kpath(path, kKeyTextSize, kp);
  LOG_TRACE(CHANGE_FORMAT, kIterOpNames.at(op).c_str(), path, AsPointer(old_value),
            AsPointer(new_value));
  confd_value_t* const leaf = InnermostTag(kp);
  if (leaf == nullptr) return ITER_CONTINUE;
  switch (op) {
    case MOP_CREATED:
      HandleCreateParameter(kp, leaf);
      break;
    case MOP_DELETED:
      HandleDeleteParameter(kp, leaf);
      break;
    case MOP_VALUE_SET:
      HandleSetParameter(kp, leaf, new_value);
      break;
    case MOP_MODIFIED:
    case MOP_MOVED_AFTER:
    case MOP_ATTR_SET:
      break;
    default:
      LOG_ERROR("Unexpected operation %u", static_cast<unsigned>(op));
  }
  return ITER_RECURSE;
}

confd_iter_ret DhcpRelayCfgHandler::HandleL3VlanCfg(confd_hkeypath_t* kp, confd_iter_op op,
                                                    confd_value_t* old_value,
                                                    confd_value_t* new_value) {
  char path[kKeyTextSize] = {};
  confd_pp_kpath(path, kKeyTextSize, kp);
  LOG_TRACE(CHANGE_FORMAT, kIterOpNames.at(op).c_str(), path, AsPointer(old_value),
            AsPointer(new_value));
  if (new_value == nullptr) return ITER_RECURSE;
  const std::string l3_name = kL3Prefix + std::string(TEXT_OF(&kp->v[2][0]));
  const L3IfLookup relay = FindRelayOfL3If(l3_name);
  if (!relay.found) return ITER_RECURSE;
  DhcpRelayL3Intf& l3_intf = GetOrAddRelayIntf(relay.name).GetOrAddL3Intf(l3_name);
  l3_intf.SetAddedVlanId(CONFD_GET_INT32(new_value));
  if (old_value != nullptr) l3_intf.SetDeletedVlanId(CONFD_GET_INT32(old_value));
  return ITER_RECURSE;
}

confd_iter_ret DhcpRelayCfgHandler::HandleL3Ipv4Cfg(confd_hkeypath_t* kp, confd_iter_op op,
                                                    confd_value_t* old_value,
                                                    confd_value_t* new_value) {
  char path[kKeyTextSize] = {};
  confd_pp_kpath(path, kKeyTextSize, kp);
  LOG_TRACE(CHANGE_FORMAT, kIterOpNames.at(op).c_str(), path, AsPointer(old_value),
            AsPointer(new_value));
  if (new_value == nullptr) return ITER_RECURSE;
  const std::string l3_name = kL3Prefix + std::string(TEXT_OF(&kp->v[3][0]));
  const L3IfLookup relay = FindRelayOfL3If(l3_name);
  if (!relay.found) return ITER_RECURSE;
  DhcpRelayL3Intf& l3_intf = GetOrAddRelayIntf(relay.name).GetOrAddL3Intf(l3_name);
  l3_intf.SetIpv4Addr(nettypes::IPv4Addr(CONFD_GET_IPV4_AND_PLEN(new_value).ip));
  return ITER_RECURSE;
}

void DhcpRelayCfgHandler::HandleCreateParameter(confd_hkeypath_t* kp, confd_value_t* leaf) {
  if (CONFD_GET_XMLTAG(leaf) != vx_schema::kTagInterface) {
    LOG_ERROR("Unexpected create path");
    return;
  }
  const std::string name = TEXT_OF(&kp->v[2][0]);
  const std::string if_name = TEXT_OF(&kp->v[0][0]);
  const std::string l3_path = L3Path(if_name);

  const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
  std::int32_t vlan = 0;
  if (cdb_get_int32(session.Socket(), &vlan, VlanPath(l3_path).c_str()) != CONFD_OK) {
    ReportReadFault(__func__, kSourcePath, __LINE__);
  }
  confd_ipv4_prefix prefix = {};
  if (cdb_get_ipv4_and_plen(session.Socket(), &prefix, AddressPath(l3_path).c_str()) != CONFD_OK) {
    ReportReadFault(__func__, kSourcePath, __LINE__);
  }
  const nettypes::IPv4Addr address(prefix.ip);
  DhcpRelayL3Intf& l3_intf = GetOrAddRelayIntf(name).GetOrAddL3Intf(if_name);
  l3_intf.SetAddedVlanId(vlan);
  l3_intf.SetIpv4Addr(address);
  LOG_TRACE("Creating DHCP Relay L3 interface %s, VLAN ID %d and IPv4 Address %s on instance %s",
            if_name.c_str(), vlan, address.to_string().c_str(), name.c_str());
}

void DhcpRelayCfgHandler::HandleDeleteParameter(confd_hkeypath_t* kp, confd_value_t* leaf) {
  switch (CONFD_GET_XMLTAG(leaf)) {
    case vx_schema::kTagRelay: {
      const std::string name = TEXT_OF(&kp->v[0][0]);
      GetOrAddRelayIntf(name).SetShouldDelete();
      LOG_TRACE("Deleting DHCP Relay %s", name.c_str());
      break;
    }
    case vx_schema::kTagVrf: {
      const std::string name = TEXT_OF(&kp->v[1][0]);
      GetOrAddRelayIntf(name).SetVrfDeleted();
      const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
      const std::string vrf_path = Entry(kRelayPath, name) + "/vrf";
      char vrf_name[kVrfNameSize] = {};
      if (cdb_get_str(session.Socket(), vrf_name, kVrfNameSize, vrf_path.c_str()) == CONFD_OK) {
        LOG_TRACE("Deleting DHCP Relay %s VRF: %s", name.c_str(), vrf_name);
      }
      break;
    }
    case vx_schema::kTagIpv4: {
      const std::string name = TEXT_OF(&kp->v[3][0]);
      const nettypes::IPv4Addr server(CONFD_GET_IPV4(&kp->v[0][0]));
      GetOrAddRelayIntf(name).AddDeletedServerAddr(server);
      LOG_TRACE("Deleting server address %s on DHCP Relay %s", server.to_string().c_str(),
                name.c_str());
      break;
    }
    case vx_schema::kTagInterface: {
      const std::string name = TEXT_OF(&kp->v[2][0]);
      const std::string if_name = TEXT_OF(&kp->v[0][0]);
      const std::string vlan_path = VlanPath(L3Path(if_name));
      const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
      std::int32_t vlan = 0;
      if (cdb_get_int32(session.Socket(), &vlan, vlan_path.c_str()) != CONFD_OK) {
        ReportReadFault(__func__, kSourcePath, __LINE__);
      }
      DhcpRelayL3Intf& l3_intf = GetOrAddRelayIntf(name).GetOrAddL3Intf(if_name);
      l3_intf.SetDeletedVlanId(vlan);
      l3_intf.SetShouldDelete();
      LOG_TRACE("Deleting DHCP Relay L3 interface %s, instance %s", if_name.c_str(), name.c_str());
      break;
    }
    case vx_schema::kTagIfOption: {
      const std::string name = TEXT_OF(&kp->v[2][0]);
      const std::string if_name = TEXT_OF(&kp->v[0][0]);
      GetOrAddRelayIntf(name).GetOrAddIfOption(if_name).SetShouldDelete();
      LOG_TRACE("Deleting DHCP Relay L3 if-option %s, instance %s", if_name.c_str(), name.c_str());
      break;
    }
    default:
      LOG_ERROR("Unexpected delete path");
  }
}

void DhcpRelayCfgHandler::HandleSetParameter(confd_hkeypath_t* kp, confd_value_t* leaf,
                                             confd_value_t* new_value) {
  switch (CONFD_GET_XMLTAG(leaf)) {
    case vx_schema::kTagAddress: {
      const std::string name = TEXT_OF(&kp->v[4][0]);
      if (new_value == nullptr) return;
      const nettypes::IPv4Addr server(CONFD_GET_IPV4(new_value));
      GetOrAddRelayIntf(name).AddServerAddr(server);
      LOG_TRACE("Configuring DHCP Relay %s server address: %s", name.c_str(),
                server.to_string().c_str());
      break;
    }
    case vx_schema::kTagVrf: {
      if (new_value == nullptr) return;
      const std::string name = TEXT_OF(&kp->v[1][0]);
      const std::string vrf_name = TEXT_OF(new_value);
      const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
      confd_value_t vl_vrf_id = {};  // of no type, so that a failed read cannot pass the check
      if (cdb_get(session.Socket(), &vl_vrf_id, kVrfIndexPath, vrf_name.c_str()) != CONFD_OK) {
        ReportReadFault(__func__, kSourcePath, __LINE__);
      }
      const std::uint32_t vrf_id = CONFD_GET_UINT32(&vl_vrf_id);
      GetOrAddRelayIntf(name).SetVrfId(vrf_id);
      LOG_TRACE("Configuring DHCP Relay %s VRF: %s", name.c_str(), vrf_name.c_str());
      break;
    }
    case vx_schema::kTagCheck:
    case vx_schema::kTagOption:
    case vx_schema::kTagTrusted:
    case vx_schema::kTagPolicy: {
      const std::uint32_t owner = CONFD_GET_XMLTAG(&kp->v[3][0]);
      if (owner == vx_schema::kTagRelay) {
        HandleRelaySetParameter(kp, leaf, new_value);
      } else if (owner == vx_schema::kTagIfOption) {
        HandleIfOptionSetParameter(kp, leaf, new_value);
      }
      break;
    }
    default:
      LOG_ERROR("Unexpected set path");
  }
}

void DhcpRelayCfgHandler::HandleRelaySetParameter(confd_hkeypath_t* kp, confd_value_t* leaf,
                                                  confd_value_t* new_value) {
  if (new_value == nullptr) {
    LOG_ERROR("Failed to get Instance L3 configuration value");
    return;
  }
  const std::string name = TEXT_OF(&kp->v[2][0]);
  switch (CONFD_GET_XMLTAG(leaf)) {
    case vx_schema::kTagCheck: {
      const int check = CONFD_GET_BOOL(new_value);
      GetOrAddRelayIntf(name).check = ToTriState(check);
      LOG_TRACE("Check %s on DHCP Relay instance %s", EnabledText(check), name.c_str());
      break;
    }
    case vx_schema::kTagOption: {
      const int option = CONFD_GET_BOOL(new_value);
      GetOrAddRelayIntf(name).option = ToTriState(option);
      LOG_TRACE("Option %s on DHCP Relay instance %s", EnabledText(option), name.c_str());
      break;
    }
    case vx_schema::kTagTrusted: {
      const int trusted = CONFD_GET_BOOL(new_value);
      GetOrAddRelayIntf(name).trusted = ToTriState(trusted);
      LOG_TRACE("Trusted %s on DHCP Relay instance %s", EnabledText(trusted), name.c_str());
      break;
    }
    case vx_schema::kTagPolicy: {
      static const PolicyTable kPolicyTable = MakePolicyTable();
      const int value = CONFD_GET_ENUM_VALUE(new_value);
      DhcpRelayIntf& intf = GetOrAddRelayIntf(name);  // before the look-up, which may throw
      const auto& policy = kPolicyTable.at(value);
      intf.policy = policy.first;
      LOG_TRACE("Configuring policy %s on DHCP Relay instance %s", policy.second.c_str(),
                name.c_str());
      break;
    }
    default:
      LOG_ERROR("Unexpected set path");
  }
}

void DhcpRelayCfgHandler::HandleIfOptionSetParameter(confd_hkeypath_t* kp, confd_value_t* leaf,
                                                     confd_value_t* new_value) {
  if (new_value == nullptr) {
    LOG_ERROR("Failed to get Instance IfOption configuration value");
    return;
  }
  const std::string name = TEXT_OF(&kp->v[4][0]);
  const std::string if_name = TEXT_OF(&kp->v[2][0]);
  switch (CONFD_GET_XMLTAG(leaf)) {
    case vx_schema::kTagCheck: {
      const int check = CONFD_GET_BOOL(new_value);
      GetOrAddRelayIntf(name).GetOrAddIfOption(if_name).check = ToTriState(check);
      LOG_TRACE("Check %s on DHCP Relay instance %s IfOption %s", EnabledText(check), name.c_str(),
                if_name.c_str());
      break;
    }
    case vx_schema::kTagOption: {
      const int option = CONFD_GET_BOOL(new_value);
      GetOrAddRelayIntf(name).GetOrAddIfOption(if_name).option = ToTriState(option);
      LOG_TRACE("Option %s on DHCP Relay instance %s IfOption %s", EnabledText(option),
                name.c_str(), if_name.c_str());
      break;
    }
    case vx_schema::kTagTrusted: {
      const int trusted = CONFD_GET_BOOL(new_value);
      GetOrAddRelayIntf(name).GetOrAddIfOption(if_name).trusted = ToTriState(trusted);
      LOG_TRACE("Trusted %s on DHCP Relay instance %s IfOption %s", EnabledText(trusted),
                name.c_str(), if_name.c_str());
      break;
    }
    case vx_schema::kTagPolicy: {
      static const PolicyTable kPolicyTable = MakePolicyTable();
      const int value = CONFD_GET_ENUM_VALUE(new_value);
      // Before the look-up, which may throw.
      DhcpRelayIfOption& if_option = GetOrAddRelayIntf(name).GetOrAddIfOption(if_name);
      const auto& policy = kPolicyTable.at(value);
      if_option.policy = policy.first;
      LOG_TRACE("Configuring policy %s on DHCP Relay instance %s IfOption %s",
                policy.second.c_str(), name.c_str(), if_name.c_str());
      break;
    }
    default:
      LOG_ERROR("Unexpected set path");
  }
}

void DhcpRelayCfgHandler::DumpConfig() {
  LOG_TRACE("Fetching DHCP Relay config");
  const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
  const int sock = session.Socket();
  ListKeys instances(sock, kRelayPath, GetCdbNumInstance(sock, kRelayPath));
  for (int i = 0; i < instances.size(); ++i) {
    LOG_TRACE("DHCP Relay: %d", i);
    if (const auto name = instances.Text(i)) DumpInstance(sock, kRelayPath, *name);
    instances.ReleaseKey(i);
  }
}

void DhcpRelayCfgHandler::DumpInstance(int sock, const std::string& relay_path,
                                       const std::string& name) {
  const std::string path = Entry(relay_path, name);
  DhcpRelayIntf& intf = GetOrAddRelayIntf(name);

  confd_value_t instance_data[8] = {};
  const ReleaseAtExit release_instance_data(instance_data);
  cdb_get_object(sock, instance_data, 8, "%s", path.c_str());
  const int option = CONFD_GET_BOOL(&instance_data[4]);
  intf.option = ToTriState(option);
  LOG_TRACE("\tOption: %d", option);
  const int check = CONFD_GET_BOOL(&instance_data[5]);
  intf.check = ToTriState(check);
  LOG_TRACE("\tCheck: %d", check);
  const int trusted = CONFD_GET_BOOL(&instance_data[6]);
  intf.trusted = ToTriState(trusted);
  LOG_TRACE("\tTrusted: %d", trusted);
  static const PolicyTable policies = MakePolicyTable();
  const auto& policy = policies.at(CONFD_GET_ENUM_VALUE(&instance_data[7]));
  intf.policy = policy.first;
  LOG_TRACE("\tPolicy: %s", policy.second.c_str());

  char vrf_name[kVrfNameSize] = {};
  if (cdb_get_str(sock, vrf_name, kVrfNameSize, (path + "/vrf").c_str()) == CONFD_OK) {
    confd_value_t vl_vrf_id = {};  // of no type, so that a failed read cannot pass the check
    if (cdb_get(sock, &vl_vrf_id, kVrfIndexPath, vrf_name) != CONFD_OK) {
      ReportReadFault(__func__, kSourcePath, __LINE__);
    }
    intf.SetVrfId(CONFD_GET_UINT32(&vl_vrf_id));
    LOG_TRACE("\tVRF: %s", vrf_name);
  }

  const std::string server_path = path + "/server/ipv4";
  const std::int64_t servers = GetCdbNumInstance(sock, server_path);
  for (int j = 0; j < servers; ++j) {
    confd_value_t server_addr_data[1] = {};
    const ReleaseAtExit release_server(server_addr_data);
    cdb_get_object(sock, server_addr_data, 1, (server_path + "[%d]").c_str(), j);
    const nettypes::IPv4Addr server(CONFD_GET_IPV4(&server_addr_data[0]));
    intf.AddServerAddr(server);
    LOG_TRACE("Server IP Address: %s", server.to_string().c_str());
  }

  const std::string interface_path = path + "/interface";
  ListKeys interfaces(sock, interface_path, GetCdbNumInstance(sock, interface_path));
  for (int j = 0; j < interfaces.size(); ++j) {
    LOG_TRACE("DHCP Relay Interface L3: %d", j);
    if (const auto if_name = interfaces.Text(j)) DumpInterface(sock, *if_name, intf);
    interfaces.ReleaseKey(j);
  }

  const std::string if_option_path = path + "/if-option";
  ListKeys if_options(sock, if_option_path, GetCdbNumInstance(sock, if_option_path));
  for (int j = 0; j < if_options.size(); ++j) {
    LOG_TRACE("DHCP Relay IfOption: %d", j);
    if (const auto if_name = if_options.Text(j)) DumpIfOption(sock, if_option_path, *if_name, intf);
    if_options.ReleaseKey(j);
  }
}

void DhcpRelayCfgHandler::DumpInterface(int sock, const std::string& if_name, DhcpRelayIntf& intf) {
  DhcpRelayL3Intf& l3_intf = intf.GetOrAddL3Intf(if_name);
  const std::string l3_path = L3Path(if_name);
  const std::string vlan_path = VlanPath(l3_path);
  const std::string address_path = AddressPath(l3_path);

  if (cdb_exists(sock, vlan_path.c_str()) != 0) {
    std::int32_t vlan = 0;
    if (cdb_get_int32(sock, &vlan, vlan_path.c_str()) != CONFD_OK) {
      ReportReadFault(__func__, kSourcePath, __LINE__);
    }
    l3_intf.SetAddedVlanId(vlan);
    LOG_TRACE("\tVLAN ID: %d", vlan);
  }

  if (cdb_exists(sock, address_path.c_str()) != 0) {
    confd_ipv4_prefix prefix = {};
    if (cdb_get_ipv4_and_plen(sock, &prefix, address_path.c_str()) != CONFD_OK) {
      ReportReadFault(__func__, kSourcePath, __LINE__);
    }
    const nettypes::IPv4Addr address(prefix.ip);
    l3_intf.SetIpv4Addr(address);
    LOG_TRACE("\tIPv4 Addr: %s", address.to_string().c_str());
  }
}

void DhcpRelayCfgHandler::DumpIfOption(int sock, const std::string& if_option_path,
                                       const std::string& if_name, DhcpRelayIntf& intf) {
  const std::string path = Entry(if_option_path, if_name);
  DhcpRelayIfOption& if_option = intf.GetOrAddIfOption(if_name);

  confd_value_t if_option_data[6] = {};
  const ReleaseAtExit release_if_option_data(if_option_data);
  cdb_get_object(sock, if_option_data, 6, "%s", path.c_str());
  const int option = CONFD_GET_BOOL(&if_option_data[2]);
  if_option.option = ToTriState(option);
  LOG_TRACE("\tOption: %d", option);
  const int check = CONFD_GET_BOOL(&if_option_data[3]);
  if_option.check = ToTriState(check);
  LOG_TRACE("\tCheck: %d", check);
  const int trusted = CONFD_GET_BOOL(&if_option_data[4]);
  if_option.trusted = ToTriState(trusted);
  LOG_TRACE("\tTrusted: %d", trusted);
  static const PolicyTable policies = MakePolicyTable();
  const auto& policy = policies.at(CONFD_GET_ENUM_VALUE(&if_option_data[5]));
  if_option.policy = policy.first;
  LOG_TRACE("\tPolicy: %s", policy.second.c_str());
}

// The path is a copy because it serves as a format.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::int64_t DhcpRelayCfgHandler::GetCdbNumInstance(int sock, std::string path) {
  const int count = cdb_num_instances(sock, path.c_str());
  if (count >= 0) return count;

  char os_error_buffer[256] = {};
  const char* const os_error = strerror_r(errno, os_error_buffer, sizeof(os_error_buffer));
  const char* const general_error = confd_strerror(confd_errno);
  const char* const last_error = confd_lasterr();
  char text[kFaultTextSize] = {};
  std::snprintf(text, sizeof(text), "confd_lasterr: %s, confd_errno: %s, errno: %s", last_error,
                general_error, os_error);
  vxmw_gen_fault(0, __func__, kSourcePath, __LINE__, text);
  std::exit(EXIT_FAILURE);
}

L3IfLookup DhcpRelayCfgHandler::FindRelayOfL3If(const std::string& relay_if_name) {
  const VxConfdCdbSession session(interface_, CDB_RUNNING, true);
  const int sock = session.Socket();
  const ListKeys instances(sock, kRelayPath, GetCdbNumInstance(sock, kRelayPath));
  const std::string entry = Entry("/interface", relay_if_name);
  std::string path;  // one for all, since a commit may come here with thousands of interfaces
  for (int i = 0; i < instances.size(); ++i) {
    const auto name = instances.Text(i);
    if (!name) continue;
    path.assign(kRelayPath).append("{").append(*name).append("}").append(entry);
    // An error counts as a hit: only 0 means absent.
    if (cdb_exists(sock, path.c_str()) != 0) return {true, *name};
  }
  return {};
}

DhcpRelayIntf& DhcpRelayCfgHandler::GetOrAddRelayIntf(const std::string& name) {
  for (DhcpRelayIntf& intf : relay_intfs_) {
    // From the end, where the names of many instances differ first.
    if (std::equal(intf.name().rbegin(), intf.name().rend(), name.rbegin(), name.rend())) {
      return intf;
    }
  }
  return relay_intfs_.emplace_back(name);
}

void DhcpRelayCfgHandler::SendSetConfig() {
  for (const DhcpRelayIntf& intf : relay_intfs_) {
    LOG_TRACE("Set: \n\t%s", intf.ToString().c_str());
    Send(intf, false);
  }
}

void DhcpRelayCfgHandler::SendDeleteConfig() {
  for (const DhcpRelayIntf& intf : relay_intfs_) {
    LOG_TRACE("Delete: \n\t%s", intf.ToString().c_str());
    Send(intf, true);
  }
}

void DhcpRelayCfgHandler::Send(const DhcpRelayIntf& intf, bool is_delete) {
  DhcpRelayIntfCmd command(intf, is_delete);
  if (mediator()) mediator()->Notify(this, &command);
}

}  // namespace dhcp_relay_app
