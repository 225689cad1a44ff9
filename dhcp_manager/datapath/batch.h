// Many packets a system call (recvmmsg, sendmmsg).

#ifndef DHCP_MANAGER_DATAPATH_BATCH_H_
#define DHCP_MANAGER_DATAPATH_BATCH_H_

#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace dhcp_manager {

// Packets that are taken before what came of them is sent.
inline constexpr std::size_t kBatch = 64;

// Buffers for one batch of datagrams received.
class Inbox {
 public:
  // Largest datagram taken whole: that of a jumbo frame.
  static constexpr std::size_t kSize = 9216;
  // Room before a packet, for headers.
  static constexpr std::size_t kHeadroom = 64;

  struct Message {
    std::uint8_t* data;
    std::size_t size;
    std::size_t capacity;
    const sockaddr_in* from;
    bool truncated;
  };

  Inbox();

  // Takes what waits in `fd`, up to kBatch, and returns how many.
  std::size_t Receive(int fd);
  // The `index`th of them; its bytes may be changed.
  Message Get(std::size_t index);

 private:
  struct Buffer {
    alignas(64) std::array<std::uint8_t, kHeadroom + kSize> bytes;
    sockaddr_in from;
  };

  std::unique_ptr<std::array<Buffer, kBatch>> buffers_;
  std::array<iovec, kBatch> vectors_{};
  std::array<mmsghdr, kBatch> headers_{};
};

// Packets on their way out of one socket. Their bytes must stay as they are until Flush.
class Outbox {
 public:
  explicit Outbox(int fd) : fd_(fd) {}

  bool empty() const { return count_ == 0; }
  bool full() const { return count_ == kMessages; }

  // `tag` comes back from Flush. Not to be called when full.
  void Add(const void* data, std::size_t size, const sockaddr_in& to, std::size_t tag);
  void Add(const void* data, std::size_t size, const sockaddr_ll& to, std::size_t tag);

  // Sends everything; calls `done(tag, sent)` for each packet in order.
  template <typename Done>
  void Flush(Done done) {
    std::size_t next = 0;
    while (next < count_) {
      const std::size_t sent = Send(next);
      for (std::size_t i = 0; i < sent; ++i) done(tags_[next + i], true);
      next += sent;
      // The kernel refuses the first packet of those left.
      if (sent == 0) done(tags_[next++], false);
    }
    count_ = 0;
  }

 private:
  static constexpr std::size_t kMessages = 256;

  union SocketAddress {
    sockaddr_ll link;
    sockaddr_in ip;
  };

  void Add(const void* data, std::size_t size, std::size_t tag, std::size_t address_size);
  // Sends from the `first`th on and returns how many were taken.
  std::size_t Send(std::size_t first);

  int fd_;
  std::size_t count_ = 0;
  std::array<SocketAddress, kMessages> addresses_{};
  std::array<std::size_t, kMessages> tags_{};
  std::array<iovec, kMessages> vectors_{};
  std::array<mmsghdr, kMessages> headers_{};
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_BATCH_H_
