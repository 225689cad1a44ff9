#include "dhcp_manager/control/listener.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/system_error.h"

namespace dhcp_manager {
namespace {

using base::ConnectionError;
using base::Descriptor;

constexpr int kBacklog = 64;

void RemoveStale(const std::filesystem::path& path, const sockaddr_un& address) {
  const Descriptor probe = base::MakePacketSocket(SOCK_NONBLOCK);
  if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
      errno == EAGAIN) {
    throw ConnectionError("another DHCP manager answers on " + path.string());
  }
  if (errno == ECONNREFUSED && std::filesystem::is_socket(path)) unlink(path.c_str());
}

Descriptor Listen(const std::filesystem::path& path, mode_t mode) {
  const sockaddr_un address = base::SocketAddress(path);
  RemoveStale(path, address);
  Descriptor fd = base::MakePacketSocket(SOCK_NONBLOCK);
  if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    base::ThrowSystemError("cannot make the socket " + path.string());
  }
  if (chmod(path.c_str(), mode) != 0 || listen(fd.get(), kBacklog) != 0) {
    base::ThrowSystemError("cannot listen on " + path.string());
  }
  return fd;
}

}  // namespace

Listener::Listener(vxmw_t* mw, std::filesystem::path path, mode_t mode, Accepted accepted)
    : path_(std::move(path)), accepted_(std::move(accepted)), fd_(Listen(path_, mode)) {
  events_ = std::make_unique<vxmw::IoSource>(mw, fd_.get(), EPOLLIN,
                                             [this](std::uint32_t /*events*/) { AcceptAll(); });
}

Listener::~Listener() { unlink(path_.c_str()); }

void Listener::AcceptAll() {
  for (int i = 0; i < kBacklog; ++i) {
    Descriptor fd(accept4(fd_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!fd) return;
    accepted_(std::move(fd));
  }
}

}  // namespace dhcp_manager
