#include "platform/dhcp_user/src/sender.h"

#include <utility>

#include "base/packet_socket.h"

namespace dhcp_relay {
namespace {

// A batch is closed at this size, in bytes; what one more call can add still fits a packet.
constexpr std::size_t kBatchSize = base::kMaxPacketSize / 2;

// Bytes that a call in a batch takes besides its own.
constexpr std::size_t kCallOverhead = 4;

}  // namespace

void Sender::Reset(int fd) {
  fd_ = fd;
  held_ = in_commit_ = continues_ = false;
  queue_.clear();
  queued_size_ = 0;
  batch_.Clear();
  batch_size_ = 0;
}

Sender::Result Sender::Send(const wire::Call& call) {
  if (!waiting() && !held_) {
    single_.mutable_calls()->clear_calls();
    *single_.mutable_calls()->add_calls() = call;
    return SendOrQueue(single_);
  }
  *batch_.mutable_calls()->add_calls() = call;
  batch_size_ += call.ByteSizeLong() + kCallOverhead;
  if (queued_size_ + batch_size_ > queue_limit_) return Result::kOverLimit;
  if (batch_size_ < kBatchSize) return Result::kOk;
  const bool socket_is_full = !queue_.empty();
  CloseBatch();
  return socket_is_full ? Result::kOk : SendQueue();
}

Sender::Result Sender::Send(const wire::ClientMessage& message) {
  if (!waiting()) return SendOrQueue(message);
  const bool socket_is_full = !queue_.empty();
  CloseBatch();
  const Result result = Queue(message.SerializeAsString());
  return result != Result::kOk || socket_is_full ? result : SendQueue();
}

Sender::Result Sender::SendOrQueue(const wire::ClientMessage& message) {
  message.SerializeToString(&packet_);
  switch (base::SendPacket(fd_, packet_)) {
    case base::SendResult::kSent:
      return Result::kOk;
    case base::SendResult::kFull:
      return Queue(packet_);
    case base::SendResult::kLost:
      break;
  }
  return Result::kLost;
}

Sender::Result Sender::Queue(std::string packet) {
  queued_size_ += packet.size();
  queue_.push_back(std::move(packet));
  return queued_size_ > queue_limit_ ? Result::kOverLimit : Result::kOk;
}

void Sender::CloseBatch() {
  if (batch_size_ > 0) QueueBatch();
}

void Sender::QueueBatch() {
  continues_ = in_commit_;
  batch_.mutable_calls()->set_commit_continues(continues_);
  Queue(batch_.SerializeAsString());
  batch_.mutable_calls()->clear_calls();
  batch_size_ = 0;
}

Sender::Result Sender::Release() {
  held_ = false;
  return queue_.empty() ? Flush() : Result::kOk;
}

Sender::Result Sender::EndCommit() {
  in_commit_ = false;
  if (!continues_) return Release();
  held_ = false;
  const bool socket_is_full = !queue_.empty();
  QueueBatch();
  return socket_is_full ? Result::kOk : SendQueue();
}

Sender::Result Sender::Flush() {
  CloseBatch();
  return SendQueue();
}

Sender::Result Sender::SendQueue() {
  while (!queue_.empty()) {
    const base::SendResult result = base::SendPacket(fd_, queue_.front());
    if (result == base::SendResult::kLost) return Result::kLost;
    if (result == base::SendResult::kFull) return Result::kOk;
    queued_size_ -= queue_.front().size();
    queue_.pop_front();
  }
  return Result::kOk;
}

}  // namespace dhcp_relay
