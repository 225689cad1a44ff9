// The configuration handler: reads the whole relay configuration on a dump request, and its changes
// on a commit, and sends both as relay records.
//
// All operations are called on the middleware loop's thread, one at a time.

#ifndef SRC_DHCP_RELAY_APP_DHCP_RELAY_CFG_HANDLER_H_
#define SRC_DHCP_RELAY_APP_DHCP_RELAY_CFG_HANDLER_H_

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <vxconfd/vxconfd.h>
#include <vxmw/vxmw.h>

#include "src/dhcp_relay_app/command.h"
#include "src/dhcp_relay_app/mediator.h"

namespace dhcp_relay_app {

// The relay instance that lists a layer-3 interface.
struct L3IfLookup {
  bool found = false;
  std::string name;
};

class DhcpRelayCfgHandler : public Component, public vxconfd::ConfigHandler {
 public:
  DhcpRelayCfgHandler(vxmw_t* mw, std::shared_ptr<Mediator> mediator);
  ~DhcpRelayCfgHandler() override;

  // A dump request reads and sends the whole configuration at once when the database is connected,
  // else leaves it to the initial phases. A dump cancel withdraws a request that still waits.
  void HandleCommand(Command* command) override;

  const std::vector<vxconfd::SubscriptionPoint>& GetSubscriptionPoints() const override;

  // Read and send the whole configuration when a dump request waits; else do nothing.
  void LoadInitialConfig() override;
  void ApplyInitialConfig() override;

  // A commit: empties the batch, and sends what the change callbacks put into it, every record as a
  // delete, then every record as a set.
  void StartCommit() override;
  void ApplyCommitConfig() override;

 private:
  friend struct DhcpRelayCfgHandlerPeer;  // tests

  void ProcessDumpRequest(const DhcpDumpRequest& request);
  void ProcessDumpCancel(const DhcpDumpCancel& cancel);

  // Change callbacks of the subscription points.
  confd_iter_ret HandleCfg(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* old_value,
                           confd_value_t* new_value);
  confd_iter_ret HandleL3Ipv4Cfg(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* old_value,
                                 confd_value_t* new_value);
  confd_iter_ret HandleL3VlanCfg(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* old_value,
                                 confd_value_t* new_value);

  // What a change of the relay tree does to the batch. `leaf` is the innermost tag of `kp`.
  void HandleCreateParameter(confd_hkeypath_t* kp, confd_value_t* leaf);
  void HandleDeleteParameter(confd_hkeypath_t* kp, confd_value_t* leaf);
  void HandleSetParameter(confd_hkeypath_t* kp, confd_value_t* leaf, confd_value_t* new_value);
  void HandleRelaySetParameter(confd_hkeypath_t* kp, confd_value_t* leaf, confd_value_t* new_value);
  void HandleIfOptionSetParameter(confd_hkeypath_t* kp, confd_value_t* leaf,
                                  confd_value_t* new_value);

  // Full read. A value of an unexpected type ends the process; an unknown policy or a relay
  // interface name shorter than its prefix throws std::out_of_range.
  void DumpConfig();
  void DumpInstance(int sock, const std::string& relay_path, const std::string& name);
  void DumpInterface(int sock, const std::string& if_name, DhcpRelayIntf& intf);
  void DumpIfOption(int sock, const std::string& if_option_path, const std::string& if_name,
                    DhcpRelayIntf& intf);

  // Number of entries of a list. A failure is a fault and ends the process.
  std::int64_t GetCdbNumInstance(int sock, std::string path);

  // The first relay instance, in the database's order, that lists the interface. `relay_if_name`
  // has its "l3-" prefix.
  L3IfLookup FindRelayOfL3If(const std::string& relay_if_name);

  // The batch's record of that instance, appended if there is none yet.
  DhcpRelayIntf& GetOrAddRelayIntf(const std::string& name);

  // Send every record of the batch, which stays as it is.
  void SendSetConfig();
  void SendDeleteConfig();
  void Send(const DhcpRelayIntf& intf, bool is_delete);

  std::vector<vxconfd::SubscriptionPoint> subscription_points_;
  std::list<DhcpRelayIntf> relay_intfs_;
  bool dump_pending_ = false;
};

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_DHCP_RELAY_CFG_HANDLER_H_
