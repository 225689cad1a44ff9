// Limits the requests of each client, told apart by hardware address and interface, in memory of a
// fixed size.

#ifndef DHCP_MANAGER_DATAPATH_CLIENT_GUARD_H_
#define DHCP_MANAGER_DATAPATH_CLIENT_GUARD_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/token_bucket.h"
#include "dhcp_manager/packet/dhcp_message.h"

namespace dhcp_manager {

// A set-associative table. A client that is new to a full set takes the place of the one that has
// been silent for the longest time, and has all its tokens: so no client is limited for what
// another sends, and one that makes up addresses only escapes this guard, not its interface's.
class ClientGuard {
 public:
  using Clock = base::TokenBucket::Clock;

  static constexpr std::size_t kSets = 4096;
  static constexpr std::size_t kWays = 8;

  // Where a client is in the table depends on a secret number, so that a set is hard to aim at.
  explicit ClientGuard(base::RateLimit limit);

  // Whether a request of that client of the link is within the limit; takes a token. `address` is
  // its hardware address, at most message::kChaddrSize bytes.
  bool Take(int link, std::span<const std::uint8_t> address, Clock::time_point now);

 private:
  // The link, the size of the address, and the address padded with zeros.
  using Key = std::array<std::uint8_t, sizeof(int) + 1 + message::kChaddrSize>;

  struct Entry {
    Key key{};
    Clock::time_point last;  // request; the clock's zero for an entry that is free
    base::TokenBucket bucket;
  };

  static Key KeyOf(int link, std::span<const std::uint8_t> address);
  std::span<Entry, kWays> SetOf(const Key& key);

  const base::RateLimit limit_;
  const std::uint64_t secret_;
  std::vector<Entry> entries_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_CLIENT_GUARD_H_
