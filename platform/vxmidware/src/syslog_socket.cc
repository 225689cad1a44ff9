#include "platform/vxmidware/src/syslog_socket.h"

#include <errno.h>
#include <locale.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstdlib>
#include <ctime>

#include "base/descriptor.h"

namespace vxmw {
namespace {

constexpr char kDefaultSocket[] = "/dev/log";

std::string SocketPath() {
  const char* path = std::getenv("VXMW_SYSLOG_SOCKET");
  return path != nullptr && *path != '\0' ? path : kDefaultSocket;
}

// As the C library writes it: local time, English names. Never freed, since exit handlers log.
std::string Now() {
  static const locale_t english = newlocale(LC_ALL_MASK, "C", nullptr);
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  std::array<char, 32> text{};
  strftime_l(text.data(), text.size(), "%b %e %T", &parts, english);
  return text.data();
}

bool Send(const std::string& path, const std::string& message) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) return false;
  path.copy(address.sun_path, path.size());
  const base::Descriptor socket_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  return socket_fd && sendto(socket_fd.get(), message.data(), message.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address), sizeof(address)) >= 0;
}

}  // namespace

bool SendToSyslog(int priority, const std::string& text) {
  return Send(SocketPath(), "<" + std::to_string(priority) + ">" + Now() + " " +
                                program_invocation_short_name + ": " + text);
}

}  // namespace vxmw
