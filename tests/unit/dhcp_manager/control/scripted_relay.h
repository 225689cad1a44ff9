// A relay whose state a test decides.

#ifndef TESTS_UNIT_DHCP_MANAGER_CONTROL_SCRIPTED_RELAY_H_
#define TESTS_UNIT_DHCP_MANAGER_CONTROL_SCRIPTED_RELAY_H_

#include <cstdint>
#include <map>
#include <string>

#include "dhcp_manager/table/relay_state.h"

namespace tests {

class ScriptedRelay : public dhcp_manager::RelayState {
 public:
  // The state of `table` on a device with `links`.
  void Use(const dhcp_manager::RelayTable& table, const dhcp_manager::Links& links = {}) {
    counts.Synchronise(table);
    forwarding_ = dhcp_manager::Forwarding(table, links);
    ++version_;
  }

  const dhcp_manager::Forwarding& forwarding() const override { return forwarding_; }
  std::uint64_t version() const override { return version_; }
  const std::string& SocketFailureOf(dhcp_manager::VrfIfindex vrf) const override {
    static const std::string kNone;
    const auto failure = failures.find(vrf);
    return failure == failures.end() ? kNone : failure->second;
  }
  dhcp_manager::SocketFaults FindSocketFaults() override { return socket_faults; }
  void CollectCounters() override {
    counts.kernel_drops().requests += dropped_requests;
    dropped_requests = 0;
  }
  const dhcp_manager::Counters& counters() const override { return counts; }
  void ClearCounters() override { counts.Clear(); }

  dhcp_manager::Counters counts;
  std::map<dhcp_manager::VrfIfindex, std::string> failures;
  dhcp_manager::SocketFaults socket_faults;
  std::uint64_t dropped_requests = 0;  // that were not collected yet

 private:
  dhcp_manager::Forwarding forwarding_;
  std::uint64_t version_ = 0;
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_CONTROL_SCRIPTED_RELAY_H_
