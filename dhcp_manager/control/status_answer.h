// The status of the manager as an answer of the control protocol.

#ifndef DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_
#define DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "dhcp_manager/control/answer.h"
#include "dhcp_manager/table/resync.h"

namespace dhcp_manager {

class StatusAnswer final : public Answer {
 public:
  // `resync` must outlive the answer.
  explicit StatusAnswer(const Resync& resync) : Answer(resync.version()), resync_(resync) {}

 private:
  std::optional<std::size_t> WriteNext(dhcp_relay::control::Reply& reply) override;
  std::uint64_t Version() const override { return resync_.version(); }

  const Resync& resync_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_
