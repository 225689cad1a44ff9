#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "dhcp_manager/packet/dhcp_message.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

using message::HasOptions;
using message::IsMessage;
using message::kEnd;
using message::kFile;
using message::kGiaddr;
using message::kHops;
using message::kOptionHeader;
using message::kOptions;
using message::kOverload;
using message::kPad;
using message::kRelayAgentInformation;
using message::kRequest;
using message::kSname;
using message::kVend;
using message::OptionsEnd;
using message::RemoveRelayAgentInformation;
using message::WalkOptions;

constexpr std::uint8_t kMaxHops = 16;

// What the options of a request tell.
struct Options {
  bool there = false;            // false for plain BOOTP
  bool whole = true;             // no option reaches beyond its bytes
  bool has_information = false;  // anywhere, in overloaded fields too
  bool file = false;             // holds options (RFC 2132, section 9.3)
  bool sname = false;
  OptionsEnd end{};
};

constexpr std::uint8_t kFileBit = 1;
constexpr std::uint8_t kSnameBit = 2;

void ReadField(const std::uint8_t* data, std::size_t from, std::size_t to, Options& options) {
  const OptionsEnd end =
      WalkOptions(data, from, to, [&](std::uint8_t code, std::size_t, std::size_t) {
        options.has_information = options.has_information || code == kRelayAgentInformation;
      });
  options.whole = options.whole && end.whole;
}

Options ReadOptions(const std::uint8_t* data, std::size_t size) {
  Options options;
  options.there = HasOptions(data, size);
  if (!options.there) return options;
  std::uint8_t overload = 0;
  options.end = WalkOptions(
      data, kOptions, size, [&](std::uint8_t code, std::size_t position, std::size_t length) {
        options.has_information = options.has_information || code == kRelayAgentInformation;
        // Readers differ in what they make of a repeated or longer one: each of them counts.
        if (code == kOverload && length > 0) overload |= data[position + kOptionHeader];
      });
  options.whole = options.end.whole;
  options.file = (overload & kFileBit) != 0;
  options.sname = (overload & kSnameBit) != 0;
  if (options.file) ReadField(data, kFile, kVend, options);
  if (options.sname) ReadField(data, kSname, kFile, options);
  return options;
}

// An address that no relay has: the limited broadcast, multicast, reserved, loopback.
bool IsImpossible(std::uint32_t giaddr) {
  constexpr std::uint32_t kFirstOctet = 24;
  constexpr std::uint32_t kLoopback = 127;
  constexpr std::uint32_t kFirstMulticast = 224;
  const std::uint32_t first = ntohl(giaddr) >> kFirstOctet;
  return first == kLoopback || first >= kFirstMulticast;
}

// Theirs go; the size stays.
void RemoveInformation(const Options& options, MessageBuffer& message, OptionsEnd& end) {
  end.position -= RemoveRelayAgentInformation(message.data, kOptions, message.size);
  if (options.file) RemoveRelayAgentInformation(message.data, kFile, kVend);
  if (options.sname) RemoveRelayAgentInformation(message.data, kSname, kFile);
}

// Puts ours in as the last option. False, with the message as it was, when there is no room.
bool InsertInformation(const RelayParameters& port, const OptionsEnd& end, MessageBuffer& message) {
  std::uint8_t* const place = message.data + end.position;
  // What follows End moves along, but for padding, which is used up.
  const std::uint8_t* tail = message.data + message.size;
  while (tail > place && tail[-1] == kPad) --tail;
  const auto moved = end.has_end ? static_cast<std::size_t>(tail - place) : 1;
  const std::size_t added = kOptionHeader + port.information.size();
  const std::size_t size = std::max(message.size, end.position + added + moved);
  if (size > message.capacity) return false;
  if (end.has_end) {
    std::memmove(place + added, place, moved);
  } else {
    place[added] = kEnd;
  }
  place[0] = kRelayAgentInformation;
  place[1] = static_cast<std::uint8_t>(port.information.size());
  std::copy(port.information.begin(), port.information.end(), place + kOptionHeader);
  message.size = size;
  return true;
}

// What a request that already carries information meets (RFC 3046, section 2.1).
RequestResult ApplyPolicy(const RelayParameters& port, const Options& options,
                          MessageBuffer& message) {
  if (!port.option || port.policy == dhcp_relay::wire::Policy::kKeep) return RequestResult::kRelay;
  if (port.policy == dhcp_relay::wire::Policy::kDrop) return RequestResult::kPolicyDrop;
  OptionsEnd end = options.end;
  RemoveInformation(options, message, end);
  return InsertInformation(port, end, message) ? RequestResult::kRelay
                                               : RequestResult::kRelayNoRoom;
}

}  // namespace

RequestResult RelayRequest(const RelayParameters& port,
                           const std::unordered_set<std::uint32_t>& own_addresses,
                           MessageBuffer& message) {
  if (!IsMessage(message.data, message.size, kRequest)) return RequestResult::kMalformed;
  std::uint32_t giaddr = 0;
  std::memcpy(&giaddr, message.data + kGiaddr, sizeof(giaddr));
  const Options options = ReadOptions(message.data, message.size);
  if (!options.whole || IsImpossible(giaddr)) return RequestResult::kMalformed;
  if (message.data[kHops] > kMaxHops) return RequestResult::kHops;
  if (giaddr != 0 && own_addresses.contains(giaddr)) return RequestResult::kOwnGiaddr;

  RequestResult result = RequestResult::kRelay;
  if (options.has_information) {
    if (giaddr == 0 && !port.trusted) return RequestResult::kUntrusted;
    result = ApplyPolicy(port, options, message);
    if (result == RequestResult::kPolicyDrop) return result;
  } else if (giaddr == 0 && port.option && options.there) {
    if (!InsertInformation(port, options.end, message)) result = RequestResult::kRelayNoRoom;
  }
  ++message.data[kHops];
  if (giaddr == 0) {
    const in_addr address = port.giaddr.to_in_addr();
    std::memcpy(message.data + kGiaddr, &address, sizeof(address));
  }
  return result;
}

}  // namespace dhcp_manager
