// What became of every message: counters by interface, by server, and for what belongs to neither.
//
// Every message received is counted once as received and once under what became of it, so that
// the sums of both are equal at any time.

#ifndef DHCP_MANAGER_COUNTERS_H_
#define DHCP_MANAGER_COUNTERS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "nettypes/ipv4_addr.h"
#include "relay_table.h"

namespace dhcp_manager {

// What became of a request that came in through a configured interface.
enum class RequestFate : std::uint8_t {
  kRelayed,  // to one server at least
  kMalformed,
  kHops,
  kOwnGiaddr,
  kUntrusted,
  kPolicy,
  kFlood,       // over the flood guard's rate
  kNoServer,    // its instance has none
  kSendFailed,  // to every server
};
inline constexpr std::size_t kRequestFates = 9;

// What became of a reply to one of our own addresses.
enum class ReplyFate : std::uint8_t {
  kRelayed,
  kMalformed,
  kNoInformation,
  kForeignInformation,
  kSendFailed,
};
inline constexpr std::size_t kReplyFates = 5;

// What became of messages that no configured interface can be named for.
enum class StrayFate : std::uint8_t {
  kNoInterface,    // a request on an interface that relays for nobody
  kNotForUs,       // a request that this device only forwards, or that is addressed to another
  kUnknownGiaddr,  // a reply whose giaddr is none of ours
  kMalformed,      // a reply too short to have one, or a request's broken headers
};
inline constexpr std::size_t kStrayFates = 4;

// The names that operators and programs see, such as "no-server".
const char* Name(RequestFate fate);
const char* Name(ReplyFate fate);
const char* Name(StrayFate fate);

struct InterfaceCounters {
  std::uint64_t requests = 0;
  std::array<std::uint64_t, kRequestFates> request_fates{};
  std::uint64_t option_left_out = 0;  // of those relayed: ours did not fit
  std::uint64_t replies = 0;
  std::array<std::uint64_t, kReplyFates> reply_fates{};

  void Count(RequestFate fate) { ++request_fates[static_cast<std::size_t>(fate)]; }
  void Count(ReplyFate fate) { ++reply_fates[static_cast<std::size_t>(fate)]; }
};

struct ServerCounters {
  std::uint64_t sent = 0;
  std::uint64_t failed = 0;
  std::uint64_t replies = 0;
};

struct StrayCounters {
  std::uint64_t received = 0;
  std::array<std::uint64_t, kStrayFates> fates{};

  void Count(StrayFate fate) {
    ++received;
    ++fates[static_cast<std::size_t>(fate)];
  }
};

struct InstanceCounters {
  std::map<std::string, InterfaceCounters> interfaces;
  std::map<nettypes::IPv4Addr, ServerCounters> servers;
};

class Counters {
 public:
  // Drops the counters of what is no longer configured, and adds zeros for what is new. References
  // to counters of what stays remain valid.
  void Keep(const RelayTable& table);
  void Clear();

  InterfaceCounters& Interface(const std::string& instance, const std::string& name) {
    return instances_.at(instance).interfaces.at(name);
  }
  ServerCounters& Server(const std::string& instance, nettypes::IPv4Addr server) {
    return instances_.at(instance).servers.at(server);
  }
  StrayCounters& strays() { return strays_; }
  const StrayCounters& strays() const { return strays_; }
  const std::map<std::string, InstanceCounters>& instances() const { return instances_; }

 private:
  std::map<std::string, InstanceCounters> instances_;
  StrayCounters strays_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_COUNTERS_H_
