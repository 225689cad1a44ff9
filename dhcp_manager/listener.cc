#include "listener.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace dhcp_manager {
namespace {

using dhcp_relay::wire::Descriptor;
using dhcp_relay::wire::WireError;

constexpr int kBacklog = 64;

WireError Error(const std::string& what, const std::filesystem::path& path) {
  return WireError("cannot " + what + " " + path.string() + ": " + std::strerror(errno));
}

Descriptor MakeSocket(const std::filesystem::path& path) {
  Descriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd) throw Error("make a socket for", path);
  return fd;
}

void RemoveStale(const std::filesystem::path& path, const sockaddr_un& address) {
  const Descriptor probe = MakeSocket(path);
  if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
      errno == EAGAIN) {
    throw WireError("another DHCP manager answers on " + path.string());
  }
  if (errno == ECONNREFUSED && std::filesystem::is_socket(path)) unlink(path.c_str());
}

Descriptor Listen(const std::filesystem::path& path, mode_t mode) {
  const sockaddr_un address = dhcp_relay::wire::SocketAddress(path);
  RemoveStale(path, address);
  Descriptor fd = MakeSocket(path);
  if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw Error("make the socket", path);
  }
  if (chmod(path.c_str(), mode) != 0 || listen(fd.get(), kBacklog) != 0) {
    throw Error("listen on", path);
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
