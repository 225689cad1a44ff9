// The relay table as an answer of the control protocol.

#ifndef DHCP_MANAGER_CONTROL_TABLE_ANSWER_H_
#define DHCP_MANAGER_CONTROL_TABLE_ANSWER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dhcp_manager/control/answer.h"
#include "dhcp_manager/table/resync.h"

namespace dhcp_manager {

// An instance goes on in the next reply under its name when it does not fit one.
class TableAnswer final : public Answer {
 public:
  // `resync` must outlive the answer; it tells the table in use.
  explicit TableAnswer(const Resync& resync) : Answer(resync.version()), resync_(resync) {}

 private:
  using Size = std::optional<std::size_t>;

  Size WriteNext(dhcp_relay::control::Reply& reply) override;
  std::uint64_t Version() const override { return resync_.version(); }

  std::size_t WriteOwn(const Instance& instance, dhcp_relay::control::Reply& reply);
  // These write the part that follows the one written last.
  Size WritePart(const Instance& instance, dhcp_relay::control::Reply& reply);
  Size WriteServer(const Instance& instance, dhcp_relay::control::Reply& reply);
  Size WriteInterface(const Instance& instance, dhcp_relay::control::Reply& reply);
  Size WriteOverride(const Instance& instance, dhcp_relay::control::Reply& reply);
  // The message of the instance in hand.
  dhcp_relay::control::Instance& Message(dhcp_relay::control::Reply& reply) const;

  const Resync& resync_;
  // Names of what was written last; empty, which no name is, before the first.
  std::string instance_;
  std::string interface_;
  std::string override_;
  std::optional<nettypes::IPv4Addr> server_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_TABLE_ANSWER_H_
