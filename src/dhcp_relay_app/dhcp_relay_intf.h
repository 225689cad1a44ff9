// The relay records: one DHCP relay instance, with what one batch sets and removes of it.
//
// Plain values, copied and compared member by member. Flags only go from false to true and lists
// only grow; a record lives until the batch it belongs to is emptied.

#ifndef SRC_DHCP_RELAY_APP_DHCP_RELAY_INTF_H_
#define SRC_DHCP_RELAY_APP_DHCP_RELAY_INTF_H_

#include <cstdint>
#include <list>
#include <string>
#include <utility>

#include <nettypes/ipv4_addr.h>

namespace dhcp_relay_app {

// A switch that may also be left unset.
enum class TriState : std::int32_t { kNo = 0, kYes = 1, kUndefined = -1 };

// What is done with a request that already carries relay information; the numbers are those of the
// data model's enumeration.
enum class DhcpRelayPolicy : std::int32_t { kDrop = 0, kKeep = 1, kReplace = 2, kUndefined = 3 };

// An instance's settings overridden for one interface.
class DhcpRelayIfOption {
 public:
  explicit DhcpRelayIfOption(std::string name) : name_(std::move(name)) {}

  TriState check = TriState::kUndefined;
  TriState option = TriState::kUndefined;
  TriState trusted = TriState::kUndefined;
  DhcpRelayPolicy policy = DhcpRelayPolicy::kUndefined;

  const std::string& name() const { return name_; }

  void SetShouldDelete() { should_delete_ = true; }
  bool should_delete() const { return should_delete_; }

  bool operator==(const DhcpRelayIfOption& other) const;

  // Six lines; throws std::out_of_range when a switch holds a number that TriState does not name.
  std::string ToString() const;

 private:
  std::string name_;
  bool should_delete_ = false;
};

// A layer-3 interface on which an instance relays.
class DhcpRelayL3Intf {
 public:
  explicit DhcpRelayL3Intf(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }

  void SetShouldDelete() { should_delete_ = true; }
  bool should_delete() const { return should_delete_; }

  // The database holds VLAN ids in 32 bits; the low 16 are kept. 0 is none.
  void SetAddedVlanId(std::int32_t vlan) { added_vlan_id_ = static_cast<std::uint16_t>(vlan); }
  void SetDeletedVlanId(std::int32_t vlan) { deleted_vlan_id_ = static_cast<std::uint16_t>(vlan); }
  std::uint16_t added_vlan_id() const { return added_vlan_id_; }
  std::uint16_t deleted_vlan_id() const { return deleted_vlan_id_; }

  void SetIpv4Addr(nettypes::IPv4Addr addr) { ipv4_addr_ = addr; }
  const nettypes::IPv4Addr& ipv4_addr() const { return ipv4_addr_; }

  bool operator==(const DhcpRelayL3Intf& other) const;

  // Five lines.
  std::string ToString() const;

 private:
  std::string name_;
  bool should_delete_ = false;
  std::uint16_t added_vlan_id_ = 0;
  std::uint16_t deleted_vlan_id_ = 0;
  nettypes::IPv4Addr ipv4_addr_;
};

// A relay instance.
class DhcpRelayIntf {
 public:
  explicit DhcpRelayIntf(std::string name) : name_(std::move(name)) {}

  TriState check = TriState::kUndefined;
  TriState option = TriState::kUndefined;
  TriState trusted = TriState::kUndefined;
  DhcpRelayPolicy policy = DhcpRelayPolicy::kUndefined;

  const std::string& name() const { return name_; }

  void SetShouldDelete() { should_delete_ = true; }
  bool should_delete() const { return should_delete_; }

  void SetVrfDeleted() { vrf_deleted_ = true; }
  bool vrf_deleted() const { return vrf_deleted_; }

  // Appended as they come, duplicates too.
  void AddServerAddr(nettypes::IPv4Addr addr) { added_server_addrs_.push_back(addr); }
  void AddDeletedServerAddr(nettypes::IPv4Addr addr) { deleted_server_addrs_.push_back(addr); }
  const std::list<nettypes::IPv4Addr>& added_server_addrs() const { return added_server_addrs_; }
  const std::list<nettypes::IPv4Addr>& deleted_server_addrs() const {
    return deleted_server_addrs_;
  }

  // The entry of that name, appended if there is none yet. Names are compared byte for byte. The
  // reference holds as long as the record.
  DhcpRelayL3Intf& GetOrAddL3Intf(const std::string& name);
  DhcpRelayIfOption& GetOrAddIfOption(const std::string& name);
  const std::list<DhcpRelayL3Intf>& l3_intfs() const { return l3_intfs_; }
  const std::list<DhcpRelayIfOption>& if_options() const { return if_options_; }

  // Index of the VRF; 0 is none.
  void SetVrfId(std::uint32_t id) { vrf_id_ = id; }
  std::uint32_t vrf_id() const { return vrf_id_; }

  bool operator==(const DhcpRelayIntf& other) const;

  // The log's rendering of the record, every line ended by a newline;
  // throws as DhcpRelayIfOption's does.
  std::string ToString() const;

 private:
  std::string name_;
  bool should_delete_ = false;
  bool vrf_deleted_ = false;
  std::list<nettypes::IPv4Addr> added_server_addrs_;
  std::list<nettypes::IPv4Addr> deleted_server_addrs_;
  std::list<DhcpRelayL3Intf> l3_intfs_;
  std::list<DhcpRelayIfOption> if_options_;
  std::uint32_t vrf_id_ = 0;
};

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_DHCP_RELAY_INTF_H_
