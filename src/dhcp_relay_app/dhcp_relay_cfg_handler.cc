#include "dhcp_relay_app/dhcp_relay_cfg_handler.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "lib/logger.h"
#include "nettypes/ipv4_addr.h"
#include "vx/schema_hash.h"

namespace dhcp_relay_app {
namespace {

constexpr char kSourcePath[] = "src/dhcp_relay_app/dhcp_relay_cfg_handler";

constexpr char kRelayPath[] = "/config/dhcp/relay";
constexpr char kL3Ipv4Path[] = "/config/interface/l3/ipv4/address/ip";
constexpr char kL3VlanPath[] = "/config/interface/l3/lower-layer-if/vlan";
constexpr char kVrfIndexPath[] =
    "/metacli-internal:internal/metacli-internal:vrf-config/stringTOindex{%s}/vrf-idx";

constexpr std::int32_t kSubscriptionPriority = 3;

constexpr int kKeyTextSize = 256;
constexpr int kVrfNameSize = 64;

// A relay interface is named after its layer-3 interface, behind "l3-".
constexpr std::size_t kL3PrefixLength = 3;

using PolicyTable = std::map<int, std::pair<DhcpRelayPolicy, std::string>>;

PolicyTable MakePolicyTable() {
  return {{0, {DhcpRelayPolicy::kDrop, "drop"}},
          {2, {DhcpRelayPolicy::kReplace, "replace"}},
          {1, {DhcpRelayPolicy::kKeep, "keep"}}};
}

TriState ToTriState(int flag) { return flag != 0 ? TriState::kYes : TriState::kNo; }

std::string Entry(const std::string& list, const std::string& key) {
  return list + "{" + key + "}";
}

std::string L3Path(const std::string& relay_if_name) {
  return Entry("/config/interface/l3", relay_if_name.substr(kL3PrefixLength));
}

std::string VlanPath(const std::string& l3_path) { return l3_path + "/lower-layer-if/vlan"; }
std::string AddressPath(const std::string& l3_path) { return l3_path + "/ipv4/address/ip"; }

// Looks from the end, where the names of many instances differ first.
bool IsSameName(const std::string& left, const std::string& right) {
  return std::equal(left.rbegin(), left.rend(), right.rbegin(), right.rend());
}

void ReportReadFault(const char* function, int line) {
  char text[kFaultTextSize] = {};
  std::snprintf(text, sizeof(text), "%s", confd_lasterr());
  vxmw_gen_fault(0, function, kSourcePath, line, text);
}

void Release(confd_value_t& value) {
  confd_free_value(&value);
  value.type = C_NOEXISTS;
}

// Releases the values of an array when the scope is left, by an exception too.
class ReleaseAtExit {
 public:
  explicit ReleaseAtExit(std::span<confd_value_t> values) : values_(values) {}
  ~ReleaseAtExit() {
    for (confd_value_t& value : values_) Release(value);
  }
  ReleaseAtExit(const ReleaseAtExit&) = delete;
  ReleaseAtExit& operator=(const ReleaseAtExit&) = delete;

 private:
  std::span<confd_value_t> values_;
};

// The keys of all entries of a list.
class ListKeys {
 public:
  ListKeys(int sock, const std::string& list, std::int64_t count)
      : values_(static_cast<std::size_t>(count)), release_(values_) {
    cdb_get_objects(sock, values_.data(), 1, 0, size(), "%s", list.c_str());
  }

  int size() const { return static_cast<int>(values_.size()); }

  // Nothing when the key cannot be rendered.
  std::optional<std::string> Text(int position) const {
    char text[kKeyTextSize] = {};
    if (confd_pp_value(text, kKeyTextSize, &values_[Index(position)]) <= 0) return std::nullopt;
    return text;
  }

  void ReleaseKey(int position) { Release(values_[Index(position)]); }

 private:
  static std::size_t Index(int position) { return static_cast<std::size_t>(position); }

  std::vector<confd_value_t> values_;
  ReleaseAtExit release_;
};

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

confd_iter_ret DhcpRelayCfgHandler::HandleCfg(confd_hkeypath_t* /*kp*/, confd_iter_op /*op*/,
                                              confd_value_t* /*old_value*/,
                                              confd_value_t* /*new_value*/) {
  return ITER_CONTINUE;
}

confd_iter_ret DhcpRelayCfgHandler::HandleL3Ipv4Cfg(confd_hkeypath_t* /*kp*/, confd_iter_op /*op*/,
                                                    confd_value_t* /*old_value*/,
                                                    confd_value_t* /*new_value*/) {
  return ITER_CONTINUE;
}

confd_iter_ret DhcpRelayCfgHandler::HandleL3VlanCfg(confd_hkeypath_t* /*kp*/, confd_iter_op /*op*/,
                                                    confd_value_t* /*old_value*/,
                                                    confd_value_t* /*new_value*/) {
  return ITER_CONTINUE;
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
      ReportReadFault(__func__, __LINE__);
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
      ReportReadFault(__func__, __LINE__);
    }
    l3_intf.SetAddedVlanId(vlan);
    LOG_TRACE("\tVLAN ID: %d", vlan);
  }

  if (cdb_exists(sock, address_path.c_str()) != 0) {
    confd_ipv4_prefix prefix = {};
    if (cdb_get_ipv4_and_plen(sock, &prefix, address_path.c_str()) != CONFD_OK) {
      ReportReadFault(__func__, __LINE__);
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
  for (int i = 0; i < instances.size(); ++i) {
    const auto name = instances.Text(i);
    if (!name) continue;
    const std::string path = Entry(Entry(kRelayPath, *name) + "/interface", relay_if_name);
    // An error counts as a hit: only 0 means absent.
    if (cdb_exists(sock, path.c_str()) != 0) return {true, *name};
  }
  return {};
}

DhcpRelayIntf& DhcpRelayCfgHandler::GetOrAddRelayIntf(const std::string& name) {
  for (DhcpRelayIntf& intf : relay_intfs_) {
    if (IsSameName(intf.name(), name)) return intf;
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
