// A listening socket in the manager's runtime directory.

#ifndef DHCP_MANAGER_CONTROL_LISTENER_H_
#define DHCP_MANAGER_CONTROL_LISTENER_H_

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>

#include <vxmw/event.h>

#include "base/descriptor.h"

namespace dhcp_manager {

class Listener {
 public:
  using Accepted = std::function<void(base::Descriptor)>;

  // Takes the place of a socket file that nobody answers on any more. Throws base::ConnectionError
  // when a live process does, std::system_error when the socket cannot be made.
  Listener(vxmw_t* mw, std::filesystem::path path, mode_t mode, Accepted accepted);
  // Removes the socket file.
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

 private:
  void AcceptAll();

  std::filesystem::path path_;
  Accepted accepted_;
  base::Descriptor fd_;
  std::unique_ptr<vxmw::IoSource> events_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_LISTENER_H_
