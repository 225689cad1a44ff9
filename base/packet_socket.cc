#include "base/packet_socket.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/system_error.h"

namespace base {

sockaddr_un SocketAddress(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string& text = path.native();
  if (text.size() >= sizeof(address.sun_path)) {
    throw ConnectionError("the path of the socket " + text + " is longer than " +
                          std::to_string(sizeof(address.sun_path) - 1) + " bytes");
  }
  std::memcpy(address.sun_path, text.data(), text.size());
  return address;
}

Descriptor MakePacketSocket(int flags) {
  Descriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
  if (!fd) ThrowSystemError("cannot make a socket");
  return fd;
}

Descriptor ConnectPacketSocket(const std::filesystem::path& path, int flags) {
  const sockaddr_un address = SocketAddress(path);
  Descriptor fd = MakePacketSocket(flags);
  if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    ThrowSystemError("cannot connect to " + path.string());
  }
  return fd;
}

std::optional<uid_t> PeerUser(int fd) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer.uid;
}

bool IsTrustedPeer(int fd) {
  const auto user = PeerUser(fd);
  return user && (*user == 0 || *user == geteuid());
}

SendResult SendPacket(int fd, const std::string& packet) {
  while (true) {
    if (send(fd, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
      return SendResult::kSent;
    }
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == ENOBUFS ? SendResult::kFull : SendResult::kLost;
  }
}

PacketReader::Result PacketReader::Receive(int fd) {
  while (true) {
    const ssize_t received = recv(fd, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (received < 0 && errno == EINTR) continue;
    if (received < 0 && errno == EAGAIN) return Result::kNothing;
    if (received <= 0) return Result::kClosed;
    size_ = static_cast<std::size_t>(received);
    if (size_ > kMaxPacketSize) {
      throw ConnectionError("a packet is larger than " + std::to_string(kMaxPacketSize) + " bytes");
    }
    return Result::kPacket;
  }
}

}  // namespace base
