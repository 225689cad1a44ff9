// What becomes of relay agent information that a request already carries.

#ifndef PROTOCOL_WIRE_POLICY_H_
#define PROTOCOL_WIRE_POLICY_H_

#include <cstdint>

namespace dhcp_relay::wire {

// RFC 3046 section 2.1. The numbers travel in calls.
enum class Policy : std::int32_t { kDrop = 0, kKeep = 1, kReplace = 2 };

// "drop", "keep" or "replace".
const char* PolicyName(Policy policy);

}  // namespace dhcp_relay::wire

#endif  // PROTOCOL_WIRE_POLICY_H_
