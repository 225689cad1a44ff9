#include <algorithm>
#include <cstring>

#include "dhcp_manager/packet/dhcp_message.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

using dhcp_relay::control::RequestOutcome;
using dhcp_relay::wire::Policy;
using message::HasOptions;
using message::IsMessage;
using message::kEnd;
using message::kFile;
using message::kFileBit;
using message::kGiaddr;
using message::kHops;
using message::kOptionHeader;
using message::kOptions;
using message::kOverload;
using message::kPad;
using message::kRelayAgentInformation;
using message::kRequest;
using message::kSname;
using message::kSnameBit;
using message::kVend;
using message::OptionsEnd;
using message::RemoveRelayAgentInformation;
using message::WalkOptions;

// RFC 1542, section 4.1.1: a request whose hops exceed this must be discarded.
constexpr std::uint8_t kMaxHops = 16;

struct Options {
  bool present = false;                      // false for plain BOOTP
  bool whole = true;                         // no option reaches beyond its bytes
  bool has_relay_agent_information = false;  // anywhere, in overloaded fields too
  bool in_file = false;                      // the field `file` holds options, too
  bool in_sname = false;                     // likewise `sname`
  OptionsEnd end{};
};

void ReadField(const std::uint8_t* data, std::size_t from, std::size_t to, Options& options) {
  const OptionsEnd end =
      WalkOptions(data, from, to, [&](std::uint8_t code, std::size_t, std::size_t) {
        if (code == kRelayAgentInformation) options.has_relay_agent_information = true;
      });
  options.whole = options.whole && end.whole;
}

// RFC 2132, section 9.3: the option says which fields of the header hold options.
void ReadOverloadedFields(const std::uint8_t* data, std::uint8_t overload, Options& options) {
  options.in_file = (overload & kFileBit) != 0;
  options.in_sname = (overload & kSnameBit) != 0;
  if (options.in_file) ReadField(data, kFile, kVend, options);
  if (options.in_sname) ReadField(data, kSname, kFile, options);
}

Options ReadOptions(const std::uint8_t* data, std::size_t size) {
  Options options;
  options.present = HasOptions(data, size);
  if (!options.present) return options;
  std::uint8_t overload = 0;
  options.end = WalkOptions(data, kOptions, size,
                            [&](std::uint8_t code, std::size_t position, std::size_t length) {
                              if (code == kRelayAgentInformation)
                                options.has_relay_agent_information = true;
                              // Readers differ in how they treat a repeated or a longer Overload:
                              // all of them count.
                              if (code == kOverload && length > 0)
                                overload |= data[position + kOptionHeader];
                            });
  options.whole = options.end.whole;
  ReadOverloadedFields(data, overload, options);
  return options;
}

// Whether no relay can have this address: limited broadcast, multicast, reserved, loopback
// (RFC 1122, section 3.2.1.3).
bool IsImpossible(nettypes::IPv4Addr giaddr) {
  constexpr std::uint32_t kFirstOctetShift = 24;
  constexpr std::uint32_t kLoopback = 127;
  constexpr std::uint32_t kFirstMulticast = 224;
  const std::uint32_t first = giaddr.host_order() >> kFirstOctetShift;
  return first == kLoopback || first >= kFirstMulticast;
}

// Why the request is dropped before the policy is asked; kRelayed when it is not.
RequestOutcome Check(const RelayParameters& interface, const AddressSet& own_addresses,
                     const Options& options, const std::uint8_t* data) {
  const nettypes::IPv4Addr giaddr = message::ReadAddress(data + kGiaddr);
  if (!options.whole || IsImpossible(giaddr)) return RequestOutcome::kMalformed;
  // RFC 1542, section 4.1.1.
  if (data[kHops] > kMaxHops) return RequestOutcome::kTooManyHops;
  if (giaddr.is_unspecified()) {
    // RFC 3046, section 2.1: only a trusted circuit may have added the option without a giaddr.
    const bool refused = options.has_relay_agent_information && !interface.trusted;
    return refused ? RequestOutcome::kUntrustedOption : RequestOutcome::kRelayed;
  }
  // RFC 3046, section 2.1.1: a giaddr of ours in what we receive is forged, or the packet loops.
  if (own_addresses.contains(giaddr.host_order())) return RequestOutcome::kOwnGiaddr;
  // RFC 3046, section 2.1: no relay stands behind an untrusted circuit. Others do rely on it, so
  // that this is dropped only where it was asked for.
  return interface.drop_foreign_giaddr && !interface.trusted ? RequestOutcome::kForeignGiaddr
                                                             : RequestOutcome::kRelayed;
}

// Inserts our option 82 before End. False, with the message unchanged, when there is no room.
bool InsertRelayAgentInformation(const RelayParameters& interface, const OptionsEnd& end,
                                 MessageBuffer& message) {
  std::uint8_t* const position = message.data + end.position;
  // What follows End moves along, except for padding, which makes room.
  const std::uint8_t* tail = message.data + message.size;
  while (tail > position && tail[-1] == kPad) --tail;
  const auto moved = end.has_end ? static_cast<std::size_t>(tail - position) : 1;
  const auto& value = interface.relay_agent_information;
  const std::size_t added = kOptionHeader + value.size();
  const std::size_t size = std::max(message.size, end.position + added + moved);
  if (size > message.capacity) return false;
  if (end.has_end) {
    std::memmove(position + added, position, moved);
  } else {
    position[added] = kEnd;
  }
  position[0] = kRelayAgentInformation;
  position[1] = static_cast<std::uint8_t>(value.size());
  std::copy(value.begin(), value.end(), position + kOptionHeader);
  message.size = size;
  return true;
}

// RFC 3046, section 2.1: the option comes last, and a message that it would make too long is
// relayed without it.
RequestVerdict AddOption(const RelayParameters& interface, const OptionsEnd& end,
                         MessageBuffer& message) {
  const bool added = InsertRelayAgentInformation(interface, end, message);
  return {.outcome = RequestOutcome::kRelayed, .option_left_out = !added};
}

// Policy "replace": removes every option 82, wherever it is; padding keeps the message's size.
RequestVerdict ReplaceOption(const RelayParameters& interface, const Options& options,
                             MessageBuffer& message) {
  OptionsEnd end = options.end;
  end.position -= RemoveRelayAgentInformation(message.data, kOptions, message.size);
  if (options.in_file) RemoveRelayAgentInformation(message.data, kFile, kVend);
  if (options.in_sname) RemoveRelayAgentInformation(message.data, kSname, kFile);
  return AddOption(interface, end, message);
}

// Option 82 of the message: ours is added, or the policy is applied to the one that is there.
RequestVerdict ApplyOption(const RelayParameters& interface, const Options& options,
                           MessageBuffer& message) {
  constexpr RequestVerdict kUnchanged{.outcome = RequestOutcome::kRelayed};
  if (!interface.option) return kUnchanged;
  if (options.has_relay_agent_information) {
    if (interface.policy == Policy::kDrop) return {.outcome = RequestOutcome::kPolicyDrop};
    if (interface.policy == Policy::kKeep) return kUnchanged;
    return ReplaceOption(interface, options, message);
  }
  // RFC 3046, section 2.1.1: no option is added to what another relay forwards.
  const bool first_hop = message::ReadAddress(message.data + kGiaddr).is_unspecified();
  return first_hop && options.present ? AddOption(interface, options.end, message) : kUnchanged;
}

// RFC 1542, section 4.1.1: counts the hop, and fills giaddr in when it is zero; another relay's
// giaddr must not be modified (RFC 3046, section 2.1.1).
void StampHeader(const RelayParameters& interface, std::uint8_t* data) {
  ++data[kHops];
  std::uint8_t* const giaddr = data + kGiaddr;
  if (message::ReadAddress(giaddr).is_unspecified()) {
    message::WriteAddress(interface.giaddr, giaddr);
  }
}

}  // namespace

RequestVerdict RelayRequest(const RelayParameters& interface, const AddressSet& own_addresses,
                            MessageBuffer& message) {
  // RFC 2131, section 2: the header's fixed part.
  if (!IsMessage(message.data, message.size, kRequest)) {
    return {.outcome = RequestOutcome::kMalformed};
  }
  const Options options = ReadOptions(message.data, message.size);
  const RequestOutcome outcome = Check(interface, own_addresses, options, message.data);
  if (outcome != RequestOutcome::kRelayed) return {.outcome = outcome};
  const RequestVerdict verdict = ApplyOption(interface, options, message);
  if (verdict.outcome == RequestOutcome::kRelayed) StampHeader(interface, message.data);
  return verdict;
}

}  // namespace dhcp_manager
