// Counters by interface, by server, and for messages that match neither.
//
// Every message is counted once as received and once by its outcome, so that both sums are equal
// after each batch. What the kernel drops in front of the relay is counted apart.

#ifndef DHCP_MANAGER_TABLE_COUNTERS_H_
#define DHCP_MANAGER_TABLE_COUNTERS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <nettypes/ipv4_addr.h>

#include "dhcp_manager/table/relay_table.h"
#include "protocol/control/outcome.h"

namespace dhcp_manager {

namespace control = dhcp_relay::control;

struct InterfaceCounters {
  std::uint64_t requests = 0;
  std::array<std::uint64_t, control::kRequestOutcomes> request_outcomes{};
  std::uint64_t option_left_out = 0;  // requests relayed without our option 82, for want of room
  std::uint64_t replies = 0;
  std::array<std::uint64_t, control::kReplyOutcomes> reply_outcomes{};

  void Count(control::RequestOutcome outcome, std::uint64_t times = 1) {
    request_outcomes[static_cast<std::size_t>(outcome)] += times;
  }
  void Count(control::ReplyOutcome outcome) { ++reply_outcomes[static_cast<std::size_t>(outcome)]; }
};

struct ServerCounters {
  std::uint64_t sent = 0;
  std::uint64_t failed = 0;
  std::uint64_t replies = 0;
};

struct UnmatchedCounters {
  std::uint64_t received = 0;
  std::array<std::uint64_t, control::kUnmatchedOutcomes> outcomes{};

  void Count(control::UnmatchedOutcome outcome, std::uint64_t times = 1) {
    received += times;
    outcomes[static_cast<std::size_t>(outcome)] += times;
  }
};

// What the kernel dropped because the manager did not read in time; of which interface, it does not
// tell.
struct KernelDrops {
  std::uint64_t requests = 0;
  std::optional<std::uint64_t> replies;  // nothing where they cannot be told from other datagrams
  std::uint64_t link_events = 0;         // times that events of the kernel's links were lost
};

struct InstanceCounters {
  std::map<std::string, InterfaceCounters> interfaces;
  std::map<nettypes::IPv4Addr, ServerCounters> servers;
};

class Counters {
 public:
  // Drops the counters of interfaces and servers that are no longer configured, and adds zeros for
  // new ones. References to the others' counters remain valid.
  void Synchronise(const RelayTable& table);
  void Clear();

  InterfaceCounters& Interface(const std::string& instance, const std::string& name) {
    return instances_.at(instance).interfaces.at(name);
  }
  ServerCounters& Server(const std::string& instance, nettypes::IPv4Addr server) {
    return instances_.at(instance).servers.at(server);
  }
  UnmatchedCounters& unmatched() { return unmatched_; }
  const UnmatchedCounters& unmatched() const { return unmatched_; }
  KernelDrops& kernel_drops() { return kernel_drops_; }
  const KernelDrops& kernel_drops() const { return kernel_drops_; }
  const std::map<std::string, InstanceCounters>& instances() const { return instances_; }

 private:
  std::map<std::string, InstanceCounters> instances_;
  UnmatchedCounters unmatched_;
  KernelDrops kernel_drops_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_COUNTERS_H_
