// A listening socket in the manager's runtime directory.

#ifndef DHCP_MANAGER_CONTROL_LISTENER_H_
#define DHCP_MANAGER_CONTROL_LISTENER_H_

#include <functional>
#include <memory>

#include <vxmw/event.h>

#include "base/descriptor.h"
#include "dhcp_manager/control/socket_file.h"

namespace dhcp_manager {

class Listener {
 public:
  using Accepted = std::function<void(base::Descriptor)>;

  // Listens from here on, so that peers see the user that the manager runs as by now. Takes one
  // connection in a turn of the loop. Throws std::system_error.
  Listener(vxmw_t* mw, SocketFile file, Accepted accepted);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

 private:
  void Accept();

  SocketFile file_;
  Accepted accepted_;
  std::unique_ptr<vxmw::IoSource> events_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_LISTENER_H_
