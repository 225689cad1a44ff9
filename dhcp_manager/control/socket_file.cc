#include "dhcp_manager/control/socket_file.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/packet_socket.h"
#include "base/system_error.h"

namespace dhcp_manager {
namespace {

using base::ConnectionError;
using base::Descriptor;

constexpr mode_t kOwner = 0600;
constexpr mode_t kOwnerAndGroup = 0660;
constexpr mode_t kEverybody = 0777;

// -1 leaves an owner or a group as it is.
constexpr auto kSame = static_cast<uid_t>(-1);

void RemoveStale(const std::filesystem::path& path, const sockaddr_un& address) {
  const Descriptor probe = base::MakePacketSocket(SOCK_NONBLOCK);
  if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
      errno == EAGAIN) {
    throw ConnectionError("another DHCP manager answers on " + path.string());
  }
  if (errno == ECONNREFUSED && std::filesystem::is_socket(path)) unlink(path.c_str());
}

// The file has its mode from the beginning: the directory may be another user's, who could put a
// link in its place before a chmod.
bool Bind(int fd, const sockaddr_un& address, mode_t mode) {
  const mode_t before = umask(kEverybody & ~mode);
  const int result = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  umask(before);
  return result == 0;
}

Descriptor Make(const std::filesystem::path& path, mode_t mode) {
  const sockaddr_un address = base::SocketAddress(path);
  RemoveStale(path, address);
  Descriptor fd = base::MakePacketSocket(SOCK_NONBLOCK);
  if (!Bind(fd.get(), address, mode)) {
    base::ThrowSystemError("cannot make the socket " + path.string());
  }
  return fd;
}

}  // namespace

SocketFile::SocketFile(std::filesystem::path path, const SocketAccess& access)
    : path_(std::move(path)), fd_(Make(path_, access.group ? kOwnerAndGroup : kOwner)) {
  const bool given =
      lchown(path_.c_str(), access.owner.value_or(kSame), access.group.value_or(kSame)) == 0;
  if (given) return;
  const int error = errno;
  unlink(path_.c_str());
  base::ThrowSystemError("cannot give away the socket " + path_.string(), error);
}

SocketFile::~SocketFile() {
  if (!path_.empty()) unlink(path_.c_str());
}

SocketFile::SocketFile(SocketFile&& other) noexcept
    : path_(std::exchange(other.path_, {})), fd_(std::move(other.fd_)) {}

}  // namespace dhcp_manager
