// The packet rules once more, put plainly: a message is taken apart into pieces of its own, the
// pieces are chosen, and put together again. What the relay does in place must come to the same.

#ifndef TESTS_FUZZ_RELAY_MODEL_H_
#define TESTS_FUZZ_RELAY_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "dhcp_manager/packet/relay_packet.h"

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

// `message` is what comes out; of no meaning where nothing does.
struct ModelledRequest {
  dhcp_manager::RequestVerdict verdict;
  Bytes message;
  bool has_ours = false;  // our option is in it now
};
ModelledRequest ModelRequest(const dhcp_manager::RelayParameters& interface,
                             const dhcp_manager::AddressSet& own_addresses, std::size_t capacity,
                             const Bytes& message);

struct ModelledReply {
  dhcp_relay::control::ReplyOutcome outcome;
  Bytes message;
};
ModelledReply ModelReply(const dhcp_manager::RelayParameters& interface, const Bytes& message);

// The options behind the header with those of code 82 left out, up to the last byte that is not
// zero; an End is there if none was. Nothing for a message without options.
Bytes OptionsWithoutRelayAgent(const Bytes& message);

}  // namespace fuzz

#endif  // TESTS_FUZZ_RELAY_MODEL_H_
