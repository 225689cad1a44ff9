// Replies of bounded size, for an answer that may not fit one packet.

#ifndef DHCP_MANAGER_CONTROL_REPLY_WRITER_H_
#define DHCP_MANAGER_CONTROL_REPLY_WRITER_H_

#include <cstddef>
#include <deque>
#include <string>
#include <utility>

#include "protocol/control/control.pb.h"

namespace dhcp_manager {

// Gathers the items of one answer, each far smaller than a packet. For every item: MakeRoom, add it
// to reply(), Added.
class ReplyWriter {
 public:
  // Begins the next reply when this one is full, and says whether it did.
  bool MakeRoom();

  dhcp_relay::control::Reply& reply() { return reply_; }

  // Counts an item of `size` bytes.
  void Added(std::size_t size);

  // The serialized replies, the last of them marked.
  std::deque<std::string> Finish();

 private:
  void Close();

  std::deque<std::string> replies_;
  dhcp_relay::control::Reply reply_;
  std::size_t size_ = 0;
};

// Writes one instance, whose lists may be too long for a reply: it goes on in the next one under
// the same name.
template <typename Instance>
class InstanceWriter {
 public:
  // Adds a message of an instance to a reply.
  using Add = Instance* (*)(dhcp_relay::control::Reply& reply);

  InstanceWriter(ReplyWriter& replies, std::string name, Add add)
      : replies_(replies), name_(std::move(name)), add_(add) {}

  // The message that takes the next item; valid until the next call.
  Instance& Next() {
    if (replies_.MakeRoom() || instance_ == nullptr) {
      instance_ = add_(replies_.reply());
      instance_->set_name(name_);
      replies_.Added(name_.size());
    }
    return *instance_;
  }

 private:
  ReplyWriter& replies_;
  const std::string name_;
  const Add add_;
  Instance* instance_ = nullptr;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_REPLY_WRITER_H_
