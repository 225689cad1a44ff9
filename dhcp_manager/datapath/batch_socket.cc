#include "dhcp_manager/datapath/batch_socket.h"

#include <linux/sock_diag.h>

#include <array>
#include <cerrno>
#include <optional>
#include <utility>

namespace dhcp_manager {
namespace {

// As the kernel has counted them since the socket was made: a number of 32 bits.
std::optional<std::uint32_t> DropsOf(int fd) {
  std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
  socklen_t size = sizeof(memory);
  if (getsockopt(fd, SOL_SOCKET, SO_MEMINFO, memory.data(), &size) != 0) return std::nullopt;
  return memory[SK_MEMINFO_DROPS];
}

}  // namespace

KernelSocket::KernelSocket(base::Descriptor descriptor, TakeDropsOf take_drops)
    : descriptor_(std::move(descriptor)),
      take_drops_(std::move(take_drops)),
      drops_(DropsOf(descriptor_.get()).value_or(0)) {}

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

std::uint64_t KernelSocket::TakeDrops() {
  if (take_drops_) return take_drops_(descriptor_.get());
  const std::uint32_t drops = DropsOf(descriptor_.get()).value_or(drops_);
  // This is right when the kernel's number wraps around, too.
  return drops - std::exchange(drops_, drops);
}

}  // namespace dhcp_manager
