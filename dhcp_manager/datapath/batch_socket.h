// A socket that takes and gives packets in batches.

#ifndef DHCP_MANAGER_DATAPATH_BATCH_SOCKET_H_
#define DHCP_MANAGER_DATAPATH_BATCH_SOCKET_H_

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>

#include "base/descriptor.h"

namespace dhcp_manager {

// Called once per batch, never per packet.
class BatchSocket {
 public:
  BatchSocket() = default;
  virtual ~BatchSocket() = default;
  BatchSocket(const BatchSocket&) = delete;
  BatchSocket& operator=(const BatchSocket&) = delete;

  // Readable while packets wait.
  virtual int fd() const = 0;

  // Fills `messages` from the front with the packets that wait; returns how many there were. Never
  // waits.
  virtual std::size_t Receive(std::span<mmsghdr> messages) = 0;

  // Sends `messages` from the front; returns how many were accepted. 0: the first one is refused,
  // for whatever reason. Never waits.
  virtual std::size_t Send(std::span<mmsghdr> messages) = 0;

  // Packets that the kernel has dropped in front of the socket since the last call, or since this
  // was made: a descriptor may have served another VRF before. A UDP socket counts here what its
  // filter refuses, too.
  virtual std::uint64_t TakeDrops() { return 0; }
};

// A socket of the kernel (recvmmsg, sendmmsg).
class KernelSocket : public BatchSocket {
 public:
  using TakeDropsOf = std::function<std::uint64_t(int fd)>;

  // A socket that counts its drops in a way of its own has `take_drops`.
  explicit KernelSocket(base::Descriptor descriptor, TakeDropsOf take_drops = nullptr);

  int fd() const override { return descriptor_.get(); }
  std::size_t Receive(std::span<mmsghdr> messages) override;
  std::size_t Send(std::span<mmsghdr> messages) override;
  std::uint64_t TakeDrops() override;

  // Leaves the socket to the caller. Nothing else may be called then.
  base::Descriptor Release() { return std::move(descriptor_); }

 private:
  base::Descriptor descriptor_;
  TakeDropsOf take_drops_;
  std::uint32_t drops_;  // as the kernel had counted them at the last call
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_BATCH_SOCKET_H_
