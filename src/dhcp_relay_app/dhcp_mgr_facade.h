// The daemon's only contact with the DHCP manager: relay records become calls on its client, and
// the client's dump callbacks become commands.

#ifndef SRC_DHCP_RELAY_APP_DHCP_MGR_FACADE_H_
#define SRC_DHCP_RELAY_APP_DHCP_MGR_FACADE_H_

#include <cstdint>
#include <memory>
#include <string>

#include <dhcp_user/dhcp_user.h>
#include <vxmw/vxmw.h>

#include "src/dhcp_relay_app/command.h"
#include "src/dhcp_relay_app/mediator.h"

namespace dhcp_relay_app {

class DhcpMgrFacade : public Component, public dhcp_relay::DhcpUser::CallbackIf {
 public:
  // An empty `user` is replaced by a client of the facade's own.
  DhcpMgrFacade(vxmw_t* mw, std::shared_ptr<Mediator> mediator,
                std::shared_ptr<dhcp_relay::DhcpUser> user);
  ~DhcpMgrFacade() override;

  void HandleCommand(Command* command) override;

  void OnDumpRequest() override;
  void OnDumpCancel() override;

 private:
  void SendSet(const DhcpRelayIntf& intf);
  void SendInstanceOptions(const DhcpRelayIntf& intf);
  void SendL3Interface(const std::string& instance, const DhcpRelayL3Intf& l3_intf);
  void SendIfOption(const std::string& instance, const DhcpRelayIfOption& if_option);
  void SendVrf(const std::string& instance, std::uint32_t vrf_id);

  // Removes the instance, or exactly the parts of it that the record lists as deleted.
  void SendDelete(const DhcpRelayIntf& intf);

  std::shared_ptr<dhcp_relay::DhcpUser> user_;
};

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_DHCP_MGR_FACADE_H_
