#include "dhcp_manager/datapath/batch_socket.h"

#include <cerrno>
#include <utility>

namespace dhcp_manager {

KernelSocket::KernelSocket(base::Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

std::size_t KernelSocket::Receive(std::span<mmsghdr> messages) {
  const int received = recvmmsg(descriptor_.get(), messages.data(),
                                static_cast<unsigned>(messages.size()), MSG_DONTWAIT, nullptr);
  return received < 0 ? 0 : static_cast<std::size_t>(received);
}

// A queue without room refuses at once: a wait here would hold up the packets of every VRF.
std::size_t KernelSocket::Send(std::span<mmsghdr> messages) {
  while (true) {
    const int sent = sendmmsg(descriptor_.get(), messages.data(),
                              static_cast<unsigned>(messages.size()), MSG_DONTWAIT);
    if (sent >= 0) return static_cast<std::size_t>(sent);
    // A signal came before anything was sent.
    if (errno != EINTR) return 0;
  }
}

}  // namespace dhcp_manager
