// The application object: what the daemon is made of,
// from the mediator to the configuration adapter.

#ifndef SRC_DHCP_RELAY_APP_MAIN_H_
#define SRC_DHCP_RELAY_APP_MAIN_H_

#include <memory>

#include <vxconfd/vxconfd.h>
#include <vxmw/vxmw.h>

#include "src/dhcp_relay_app/dhcp_mgr_facade.h"
#include "src/dhcp_relay_app/dhcp_relay_cfg_handler.h"
#include "src/dhcp_relay_app/mediator.h"

namespace dhcp_relay_app {

class DhcpRelayApp {
 public:
  // Assembles and starts everything; an empty pointer is replaced by an object of the application's
  // own. `mw` is not owned. Throws std::runtime_error when it is null.
  DhcpRelayApp(vxmw_t* mw, std::shared_ptr<Mediator> mediator,
               std::shared_ptr<DhcpRelayCfgHandler> handler, std::shared_ptr<DhcpMgrFacade> facade);
  ~DhcpRelayApp();
  DhcpRelayApp(const DhcpRelayApp&) = delete;
  DhcpRelayApp& operator=(const DhcpRelayApp&) = delete;

  // Runs the middleware's loop until the middleware ends it. Returns the process's exit status: 0,
  // or 1 when the loop failed.
  int Run(int timeout);

 private:
  // Destroyed from the last to the first:
  // no configuration callback may arrive once its receivers go.
  vxmw_t* mw_ = nullptr;
  std::shared_ptr<Mediator> mediator_;
  std::shared_ptr<DhcpRelayCfgHandler> handler_;
  std::shared_ptr<DhcpMgrFacade> facade_;
  std::unique_ptr<vxconfd::AppInterface> app_interface_;
};

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_MAIN_H_
