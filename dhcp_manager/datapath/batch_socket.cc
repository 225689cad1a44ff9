#include "dhcp_manager/datapath/batch_socket.h"

#include <poll.h>

#include <cerrno>
#include <utility>

namespace dhcp_manager {
namespace {

// How long to wait for room in a full socket before the packet counts as lost, in milliseconds.
constexpr int kMaxWait = 5;

}  // namespace

KernelSocket::KernelSocket(base::Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

std::size_t KernelSocket::Receive(std::span<mmsghdr> messages) {
  const int received = recvmmsg(descriptor_.get(), messages.data(),
                                static_cast<unsigned>(messages.size()), MSG_DONTWAIT, nullptr);
  return received < 0 ? 0 : static_cast<std::size_t>(received);
}

std::size_t KernelSocket::Send(std::span<mmsghdr> messages) {
  bool waited = false;
  while (true) {
    const int sent = sendmmsg(descriptor_.get(), messages.data(),
                              static_cast<unsigned>(messages.size()), MSG_DONTWAIT);
    if (sent >= 0) return static_cast<std::size_t>(sent);
    if (errno == EINTR) continue;
    if (errno != EAGAIN || waited) return 0;
    pollfd room{.fd = descriptor_.get(), .events = POLLOUT, .revents = 0};
    poll(&room, 1, kMaxWait);
    waited = true;
  }
}

}  // namespace dhcp_manager
