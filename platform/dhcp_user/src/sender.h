// The sending half of the client: packets in their order, queued while the socket takes no more.

#ifndef PLATFORM_DHCP_USER_SRC_SENDER_H_
#define PLATFORM_DHCP_USER_SRC_SENDER_H_

#include <cstddef>
#include <deque>
#include <string>

#include "protocol/wire/wire.h"

namespace dhcp_relay {

class Sender {
 public:
  enum class Result {
    kOk,
    kLost,       // the peer is gone
    kOverLimit,  // the packets that wait exceed the queue limit
  };

  // `queue_limit` is in bytes of waiting packets.
  explicit Sender(std::size_t queue_limit) : queue_limit_(queue_limit) {}

  // Switches to another socket, which is not owned, and drops what waits.
  void Reset(int fd);

  // Sends the call in a packet of its own while nothing waits; else adds it to a batch that waits.
  Result Send(const wire::Call& call);

  // Between Hold and Release every call goes into a batch, because many are expected.
  void Hold() { held_ = true; }
  Result Release();

  // Likewise between these; and each packet but the last tells the manager that more of the commit
  // follows. A commit that has no calls sends nothing.
  void BeginCommit() { held_ = in_commit_ = true; }
  Result EndCommit();

  Result Send(const wire::ClientMessage& message);

  // Sends what waits; to be called when the socket has room again.
  Result Flush();

  bool waiting() const { return !queue_.empty() || batch_size_ > 0; }

 private:
  Result SendOrQueue(const wire::ClientMessage& message);
  Result Queue(std::string packet);
  Result SendQueue();
  void CloseBatch();
  void QueueBatch();

  const std::size_t queue_limit_;
  int fd_ = -1;
  bool held_ = false;
  bool in_commit_ = false;
  bool continues_ = false;  // the latest packet of calls told that more of its commit follows
  std::deque<std::string> queue_;
  std::size_t queued_size_ = 0;
  wire::ClientMessage batch_;  // end of the queue, open for further calls
  std::size_t batch_size_ = 0;
  wire::ClientMessage single_;
  std::string packet_;
};

}  // namespace dhcp_relay

#endif  // PLATFORM_DHCP_USER_SRC_SENDER_H_
