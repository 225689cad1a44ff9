// The answer to one request of the control protocol, written piece by piece, so that packets are
// relayed in between.

#ifndef DHCP_MANAGER_CONTROL_ANSWER_H_
#define DHCP_MANAGER_CONTROL_ANSWER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "protocol/control/control.pb.h"

namespace dhcp_manager {

class Answer {
 public:
  virtual ~Answer() = default;
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  // The next packet: a serialized reply of bounded size, made with bounded work. The one that makes
  // the answer complete is marked as the last. REQUIRES: not complete.
  std::string Next();
  bool complete() const { return complete_; }

 protected:
  // `version` is that of what the answer tells.
  explicit Answer(std::uint64_t version) : version_(version) {}

  // Adds the next item, far smaller than a packet, and returns its size; nothing when there is
  // none. What has changed since the item before it may be left out or told.
  virtual std::optional<std::size_t> WriteNext(dhcp_relay::control::Reply& reply) = 0;

  // Of what the answer tells, as it is now.
  virtual std::uint64_t Version() const = 0;

 private:
  const std::uint64_t version_;
  bool complete_ = false;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_ANSWER_H_
