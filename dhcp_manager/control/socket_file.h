// The file of a socket on which the manager will listen. It is made while the manager still has the
// rights to give it to another user and group.

#ifndef DHCP_MANAGER_CONTROL_SOCKET_FILE_H_
#define DHCP_MANAGER_CONTROL_SOCKET_FILE_H_

#include <sys/types.h>

#include <filesystem>
#include <optional>

#include "base/descriptor.h"

namespace dhcp_manager {

// Who may connect, besides root.
struct SocketAccess {
  std::optional<uid_t> owner;  // without a value, this process's user
  std::optional<gid_t> group;  // its members; without a value, nobody
};

class SocketFile {
 public:
  // Takes the place of a socket file that nobody answers on any more. Nobody can connect yet.
  // Throws base::ConnectionError when a live process answers there, std::system_error when the
  // socket cannot be made.
  SocketFile(std::filesystem::path path, const SocketAccess& access);
  // Removes the file.
  ~SocketFile();
  SocketFile(SocketFile&& other) noexcept;
  SocketFile& operator=(SocketFile&&) = delete;

  // A socket that is bound and does not wait.
  int fd() const { return fd_.get(); }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;  // empty when it has moved
  base::Descriptor fd_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_SOCKET_FILE_H_
