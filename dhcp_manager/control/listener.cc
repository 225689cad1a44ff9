#include "dhcp_manager/control/listener.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <utility>

#include "base/system_error.h"

namespace dhcp_manager {
namespace {

constexpr int kBacklog = 64;

}  // namespace

Listener::Listener(vxmw_t* mw, SocketFile file, Accepted accepted)
    : file_(std::move(file)), accepted_(std::move(accepted)) {
  if (listen(file_.fd(), kBacklog) != 0) {
    base::ThrowSystemError("cannot listen on " + file_.path().string());
  }
  events_ = std::make_unique<vxmw::IoSource>(mw, file_.fd(), EPOLLIN,
                                             [this](std::uint32_t /*events*/) { Accept(); });
}

void Listener::Accept() {
  base::Descriptor fd(accept4(file_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (fd) accepted_(std::move(fd));
}

}  // namespace dhcp_manager
