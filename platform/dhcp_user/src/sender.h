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
    kLost,   // the peer is gone
    kBound,  // more would wait than the bound allows
  };

  // `bound` is in bytes of waiting packets.
  explicit Sender(std::size_t bound) : bound_(bound) {}

  // Starts anew on a socket, which is not owned; whatever waited is dropped.
  void Reset(int fd);

  // A packet of its own while nothing waits; else together with other calls that wait.
  Result Send(const wire::Call& call);

  // From Hold to Release calls are known to come in numbers and go together from the start.
  void Hold() { held_ = true; }
  Result Release();

  Result Send(const wire::ClientMessage& message);

  // Sends what waits; to be called when the socket takes packets again.
  Result Flush();

  bool waiting() const { return !queue_.empty() || batch_size_ > 0; }

 private:
  Result SendOrQueue(const wire::ClientMessage& message);
  Result Queue(std::string packet);
  Result SendQueue();
  void CloseBatch();

  const std::size_t bound_;
  int fd_ = -1;
  bool held_ = false;
  std::deque<std::string> queue_;
  std::size_t queued_size_ = 0;
  wire::ClientMessage batch_;  // calls at the end of the queue that still take company
  std::size_t batch_size_ = 0;
  wire::ClientMessage single_;
  std::string packet_;
};

}  // namespace dhcp_relay

#endif  // PLATFORM_DHCP_USER_SRC_SENDER_H_
