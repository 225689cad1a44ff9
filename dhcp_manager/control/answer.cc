#include "dhcp_manager/control/answer.h"

namespace dhcp_manager {
namespace {

// A reply of this size, in bytes, is full: some fifty interfaces. The last item that it took still
// fits the packet.
constexpr std::size_t kReplySize = 8 * 1024;

// Bytes that an item takes besides its own.
constexpr std::size_t kItemOverhead = 8;

}  // namespace

std::string Answer::Next() {
  dhcp_relay::control::Reply reply;
  std::size_t size = 0;
  while (size < kReplySize && !complete_) {
    if (const auto item = WriteNext(reply)) {
      size += *item + kItemOverhead;
    } else {
      complete_ = true;
    }
  }
  reply.set_last(complete_);
  reply.set_changed(complete_ && Version() != version_);
  return reply.SerializeAsString();
}

}  // namespace dhcp_manager
