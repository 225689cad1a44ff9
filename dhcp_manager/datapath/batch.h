// Buffers of a batch: packets received together, and packets to be sent together.

#ifndef DHCP_MANAGER_DATAPATH_BATCH_H_
#define DHCP_MANAGER_DATAPATH_BATCH_H_

#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dhcp_manager/datapath/batch_socket.h"

namespace dhcp_manager {

// Packets that are received before those that result from them are sent.
inline constexpr std::size_t kBatch = 64;

// Batches taken from a socket in one turn of the loop, so that other work gets its turn.
inline constexpr int kMaxBatches = 8;

// Buffers for one batch of datagrams received.
class Inbox {
 public:
  // Largest datagram received whole: that of a jumbo frame.
  static constexpr std::size_t kSize = 9216;
  // Room before a packet, for headers.
  static constexpr std::size_t kHeadroom = 64;

  struct Message {
    std::uint8_t* data;
    std::size_t size;
    std::size_t capacity;
    const sockaddr_in* from;
    int link;  // index of the link it came in through; 0 when the socket does not tell
    bool truncated;
  };

  Inbox();

  // Receives what waits in `socket`, up to kBatch, and returns how many.
  std::size_t Receive(BatchSocket& socket);
  // The `index`th of them; its bytes may be changed. Valid until the next Receive.
  Message Get(std::size_t index);

 private:
  struct Buffer {
    alignas(64) std::array<std::uint8_t, kHeadroom + kSize> bytes;
    sockaddr_in from;
    alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(in_pktinfo))> control;
  };

  std::unique_ptr<std::array<Buffer, kBatch>> buffers_;
  std::array<iovec, kBatch> vectors_{};
  std::array<mmsghdr, kBatch> headers_{};
  std::size_t used_ = kBatch;  // headers that the latest Receive may have written to
};

// Packets to be sent from one socket. Their bytes must stay as they are until Flush.
class Outbox {
 public:
  static constexpr std::size_t kCapacity = 256;

  // `socket` must outlive the outbox.
  explicit Outbox(BatchSocket& socket) : socket_(socket) {}
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  bool empty() const { return count_ == 0; }
  bool full() const { return count_ == kCapacity; }

  // `tag` identifies the packet to Flush's caller. REQUIRES: not full.
  void Add(const void* data, std::size_t size, const sockaddr_in& to, std::size_t tag);
  void Add(const void* data, std::size_t size, const sockaddr_ll& to, std::size_t tag);

  // Sends everything; calls `done(tag, sent)` for each packet in order.
  template <typename Done>
  void Flush(Done done) {
    std::size_t next = 0;
    while (next < count_) {
      const std::size_t sent = socket_.Send({&headers_[next], count_ - next});
      for (std::size_t i = 0; i < sent; ++i) done(tags_[next + i], true);
      next += sent;
      // The first packet of the rest is refused; those behind it may still be accepted.
      if (sent == 0) done(tags_[next++], false);
    }
    count_ = 0;
  }

 private:
  union SocketAddress {
    sockaddr_ll link;
    sockaddr_in ip;
  };

  void Add(const void* data, std::size_t size, std::size_t tag, std::size_t address_size);

  BatchSocket& socket_;
  std::size_t count_ = 0;
  std::array<SocketAddress, kCapacity> addresses_{};
  std::array<std::size_t, kCapacity> tags_{};
  std::array<iovec, kCapacity> vectors_{};
  std::array<mmsghdr, kCapacity> headers_{};
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_BATCH_H_
