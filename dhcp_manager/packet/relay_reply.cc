#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "dhcp_manager/packet/dhcp_message.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

using message::HasOptions;
using message::IsMessage;
using message::kBroadcastFlag;
using message::kChaddr;
using message::kEthernet;
using message::kFlags;
using message::kGiaddr;
using message::kHlen;
using message::kHtype;
using message::kOptionHeader;
using message::kOptions;
using message::kRelayAgentInformation;
using message::kReply;
using message::kYiaddr;
using message::OptionsEnd;
using message::RemoveRelayAgentInformation;
using message::WalkOptions;

// Least size of a BOOTP message that old clients take (RFC 1542, section 2.1).
constexpr std::size_t kMinSize = 300;

// Option 82 of a reply. One that was split into several (RFC 3396) counts as the whole.
struct Information {
  bool whole = true;  // the options are
  bool there = false;
  bool ours = false;
};

Information ReadInformation(const RelayParameters& port, const MessageBuffer& message) {
  Information information;
  if (!HasOptions(message.data, message.size)) return information;
  const auto& expected = port.information;
  std::size_t compared = 0;
  bool equal = true;
  const OptionsEnd end =
      WalkOptions(message.data, kOptions, message.size,
                  [&](std::uint8_t code, std::size_t position, std::size_t length) {
                    if (code != kRelayAgentInformation) return;
                    information.there = true;
                    const std::uint8_t* const value = message.data + position + kOptionHeader;
                    equal = equal && length <= expected.size() - compared &&
                            std::equal(value, value + length,
                                       expected.begin() + static_cast<std::ptrdiff_t>(compared));
                    if (equal) compared += length;
                  });
  information.whole = end.whole;
  information.ours = information.there && equal && compared == expected.size();
  return information;
}

}  // namespace

std::optional<nettypes::IPv4Addr> GiaddrOf(const std::uint8_t* data, std::size_t size) {
  in_addr address{};
  if (size < kGiaddr + sizeof(address)) return std::nullopt;
  std::memcpy(&address, data + kGiaddr, sizeof(address));
  return nettypes::IPv4Addr(address);
}

ReplyResult RelayReply(const RelayParameters& port, MessageBuffer& message) {
  if (!IsMessage(message.data, message.size, kReply)) return ReplyResult::kMalformed;
  const Information information = ReadInformation(port, message);
  if (!information.whole) return ReplyResult::kMalformed;
  if (port.check && port.option) {
    if (!information.there) return ReplyResult::kNoInformation;
    if (!information.ours) return ReplyResult::kForeignInformation;
  }
  if (information.ours) {
    const std::size_t freed = RemoveRelayAgentInformation(message.data, kOptions, message.size);
    message.size = std::max(message.size - freed, std::min(message.size, kMinSize));
  }
  return ReplyResult::kRelay;
}

ReplyTarget TargetOf(const MessageBuffer& message) {
  const std::uint8_t* const data = message.data;
  in_addr address{};
  std::memcpy(&address, data + kYiaddr, sizeof(address));
  ReplyTarget target;
  target.mac.fill(0xFF);
  target.address = nettypes::IPv4Addr(in_addr{INADDR_BROADCAST});
  const bool is_ethernet = data[kHtype] == kEthernet && data[kHlen] == target.mac.size();
  if ((data[kFlags] & kBroadcastFlag) != 0 || address.s_addr == 0 || !is_ethernet) return target;
  target.address = nettypes::IPv4Addr(address);
  std::copy_n(data + kChaddr, target.mac.size(), target.mac.begin());
  return target;
}

}  // namespace dhcp_manager
