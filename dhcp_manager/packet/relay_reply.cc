#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "dhcp_manager/packet/dhcp_message.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

using dhcp_relay::control::ReplyOutcome;
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

// RFC 1542, section 2.1: the smallest BOOTP message that old clients accept.
constexpr std::size_t kMinSize = 300;

// Option 82 of a reply.
struct OptionFound {
  bool whole = true;  // of the options: none reaches beyond the message
  bool present = false;
  bool ours = false;
};

// Compares a value that may come in several parts with the expected one.
class Comparison {
 public:
  explicit Comparison(const std::vector<std::uint8_t>& expected) : expected_(expected) {}

  void Add(const std::uint8_t* part, std::size_t size) {
    equal_ =
        equal_ && size <= expected_.size() - compared_ &&
        std::equal(part, part + size, expected_.begin() + static_cast<std::ptrdiff_t>(compared_));
    if (equal_) compared_ += size;
  }
  bool IsEqual() const { return equal_ && compared_ == expected_.size(); }

 private:
  const std::vector<std::uint8_t>& expected_;
  std::size_t compared_ = 0;
  bool equal_ = true;
};

// RFC 3046, section 2.1: options in sname and file of a reply are not looked at. RFC 3396: several
// options of one code are the parts of one value.
OptionFound FindOption(const RelayParameters& interface, const MessageBuffer& message) {
  OptionFound found;
  if (!HasOptions(message.data, message.size)) return found;
  Comparison comparison(interface.relay_agent_information);
  const OptionsEnd end =
      WalkOptions(message.data, kOptions, message.size,
                  [&](std::uint8_t code, std::size_t position, std::size_t length) {
                    if (code != kRelayAgentInformation) return;
                    found.present = true;
                    comparison.Add(message.data + position + kOptionHeader, length);
                  });
  found.whole = end.whole;
  found.ours = found.present && comparison.IsEqual();
  return found;
}

// RFC 3046, section 2.1: the relay that added the option removes it from the reply.
void RemoveOurOption(MessageBuffer& message) {
  const std::size_t freed = RemoveRelayAgentInformation(message.data, kOptions, message.size);
  message.size = std::max(message.size - freed, std::min(message.size, kMinSize));
}

}  // namespace

std::optional<nettypes::IPv4Addr> GiaddrOf(const std::uint8_t* data, std::size_t size) {
  if (size < kGiaddr + sizeof(in_addr)) return std::nullopt;
  return message::ReadAddress(data + kGiaddr);
}

ReplyOutcome RelayReply(const RelayParameters& interface, MessageBuffer& message) {
  // RFC 2131, section 2: the header's fixed part.
  if (!IsMessage(message.data, message.size, kReply)) return ReplyOutcome::kMalformed;
  const OptionFound found = FindOption(interface, message);
  if (!found.whole) return ReplyOutcome::kMalformed;
  // RFC 3046, section 2.2: a server that supports the option returns it unchanged.
  if (interface.check && interface.option) {
    if (!found.present) return ReplyOutcome::kNoOption;
    if (!found.ours) return ReplyOutcome::kForeignOption;
  }
  if (found.ours) RemoveOurOption(message);
  return ReplyOutcome::kRelayed;
}

// RFC 1542, section 4.1.2, and RFC 2131, section 4.1: broadcast when the client asked for it, when
// it gets no address, or when chaddr is no Ethernet address; else to yiaddr and chaddr.
ReplyTarget TargetOf(const MessageBuffer& message) {
  const std::uint8_t* const data = message.data;
  ReplyTarget target;
  target.mac.fill(0xFF);
  target.address = nettypes::IPv4Addr::from_host_order(INADDR_BROADCAST);
  const nettypes::IPv4Addr yiaddr = message::ReadAddress(data + kYiaddr);
  const bool is_ethernet = data[kHtype] == kEthernet && data[kHlen] == target.mac.size();
  if ((data[kFlags] & kBroadcastFlag) != 0 || yiaddr.is_unspecified() || !is_ethernet) {
    return target;
  }
  target.address = yiaddr;
  std::copy_n(data + kChaddr, target.mac.size(), target.mac.begin());
  return target;
}

}  // namespace dhcp_manager
