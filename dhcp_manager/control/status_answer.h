// The status of the manager as an answer of the control protocol.

#ifndef DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_
#define DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "dhcp_manager/control/answer.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"

namespace dhcp_manager {

class StatusAnswer final : public Answer {
 public:
  // `resync` and `journal` must outlive the answer.
  StatusAnswer(const Resync& resync, const Journal& journal)
      : Answer(resync.version()), resync_(resync), journal_(journal) {}

 private:
  std::optional<std::size_t> WriteNext(dhcp_relay::control::Reply& reply) override;
  std::uint64_t Version() const override { return resync_.version(); }

  const Resync& resync_;
  const Journal& journal_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_STATUS_ANSWER_H_
