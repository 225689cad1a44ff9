// The rules of the protocol by which the daemon calls the DHCP manager.

#ifndef PROTOCOL_WIRE_WIRE_H_
#define PROTOCOL_WIRE_WIRE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "protocol/wire/wire.pb.h"

namespace dhcp_relay::wire {

inline constexpr std::uint32_t kVersion = 1;

// Longest name of an instance, interface or override, in bytes.
inline constexpr std::size_t kMaxNameSize = 255;

inline constexpr char kSocketName[] = "relay.sock";

// The argument an operation takes.
enum class ValueKind { kNone, kAddress, kVlan, kIdentifier, kFlag, kPolicy };

struct OperationInfo {
  Operation operation;
  const char* name;  // as the client's operation is called
  bool has_name;     // concerns an interface or override
  ValueKind value;
};

// Every operation, in the order of its number.
std::span<const OperationInfo> Operations();

// Null for a number that is no operation.
const OperationInfo* FindOperation(Operation operation);

// What is wrong with a call; nothing when it is as its operation wants it.
std::optional<std::string> Fault(const Call& call);

}  // namespace dhcp_relay::wire

#endif  // PROTOCOL_WIRE_WIRE_H_
