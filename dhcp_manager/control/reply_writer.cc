#include "dhcp_manager/control/reply_writer.h"

#include "base/packet_socket.h"

namespace dhcp_manager {
namespace {

// A reply of this size, in bytes, is full; the last item that it took still fits the packet.
constexpr std::size_t kReplySize = base::kMaxPacketSize / 2;

// Bytes that an item takes besides its own.
constexpr std::size_t kItemOverhead = 8;

}  // namespace

bool ReplyWriter::MakeRoom() {
  if (size_ < kReplySize) return false;
  Close();
  return true;
}

void ReplyWriter::Added(std::size_t size) { size_ += size + kItemOverhead; }

std::deque<std::string> ReplyWriter::Finish() {
  reply_.set_last(true);
  Close();
  return std::exchange(replies_, {});
}

void ReplyWriter::Close() {
  replies_.push_back(reply_.SerializeAsString());
  reply_.Clear();
  size_ = 0;
}

}  // namespace dhcp_manager
