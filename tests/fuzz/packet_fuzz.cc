// Any bytes as a message to the packet rules. Input: settings (bit 0 check, 1 trusted, 2 option,
// 3 and 4 policy, 5 a reply), room behind the message, length of the interface's name, message.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>

#include "dhcp_manager/packet/relay_packet.h"
#include "tests/fuzz/relay_model.h"
#include "tests/fuzz/require.h"

namespace {

using base::MacAddress;
using dhcp_manager::MakeRelayAgentInformation;
using dhcp_manager::MessageBuffer;
using dhcp_manager::RelayParameters;
using dhcp_manager::ReplyResult;
using dhcp_manager::ReplyTarget;
using dhcp_manager::RequestResult;
using dhcp_relay::wire::Policy;
using fuzz::Bytes;
using fuzz::Require;

constexpr std::size_t kSettings = 3;
constexpr std::size_t kLongest = 2048;
constexpr std::uint8_t kStale = 0xAA;
constexpr std::uint16_t kVlan = 4094;
constexpr base::MacAddress kMac{2, 0, 0, 0, 0, 5};

struct Input {
  RelayParameters port;
  bool is_reply;
  std::size_t capacity;
  Bytes message;
};

Input Take(const std::uint8_t* data, std::size_t size) {
  const auto bit = [&](unsigned int number) { return (data[0] >> number & 1) != 0; };
  Input input;
  input.port.giaddr = *nettypes::IPv4Addr::parse("192.168.5.1");
  input.port.check = bit(0);
  input.port.trusted = bit(1);
  input.port.option = bit(2);
  input.port.policy = static_cast<Policy>((data[0] >> 3 & 3) % 3);
  input.is_reply = bit(5);
  input.port.information = MakeRelayAgentInformation(
      std::string(data[2], 'x'), data[2] % 2 == 0 ? std::optional(kVlan) : std::nullopt, kMac);
  input.message.assign(data + kSettings, data + size);
  input.capacity = input.message.size() + data[1];
  return input;
}

// A message in memory of exactly its capacity, so that every byte beyond is noticed.
class Memory {
 public:
  Memory(const Bytes& message, std::size_t capacity) : bytes_(capacity, kStale) {
    std::copy(message.begin(), message.end(), bytes_.begin());
    buffer_ = {.data = bytes_.data(), .size = message.size(), .capacity = capacity};
  }

  MessageBuffer& buffer() { return buffer_; }
  Bytes message() const {
    Require(buffer_.data == bytes_.data() && buffer_.size <= bytes_.size(),
            "it stays in its buffer");
    return {bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(buffer_.size)};
  }

 private:
  Bytes bytes_;
  MessageBuffer buffer_{};
};

bool IsRelayed(RequestResult result) {
  return result == RequestResult::kRelay || result == RequestResult::kRelayNoRoom;
}

// The next relay's turn, set up as this one: it changes nothing but hops.
void CheckNextRelay(const Input& input, const Bytes& relayed) {
  if (input.port.option && input.port.policy == Policy::kDrop) return;
  Memory next(relayed, std::max(input.capacity, relayed.size()));
  const RequestResult result = RelayRequest(input.port, {}, next.buffer());
  if (relayed[3] > 16) {
    Require(result == RequestResult::kHops, "the seventeenth relay drops it");
    return;
  }
  Require(result == RequestResult::kRelay, "what was relayed can be relayed again");
  Bytes expected = relayed;
  ++expected[3];
  Require(next.message() == expected, "relaying again changes nothing but hops");
}

// A server that sends back what it got: its reply reaches the client as if no relay had been there.
void CheckEcho(const Input& input, Bytes relayed) {
  relayed[0] = 2;
  Memory echo(relayed, relayed.size());
  Require(RelayReply(input.port, echo.buffer()) == ReplyResult::kRelay,
          "our own option is known again");
  Require(fuzz::OptionsWithoutInformation(echo.message()) ==
              fuzz::OptionsWithoutInformation(input.message),
          "the client's options come back");
}

void CheckRequest(const Input& input) {
  const std::unordered_set<std::uint32_t> own{
      input.port.giaddr.to_in_addr().s_addr,
      nettypes::IPv4Addr::parse("10.0.0.254")->to_in_addr().s_addr};
  const auto expected = fuzz::ModelRequest(input.port, own, input.capacity, input.message);
  Memory memory(input.message, input.capacity);
  const RequestResult result = RelayRequest(input.port, own, memory.buffer());
  Require(result == expected.result, "a request's result is the model's");
  const Bytes message = memory.message();
  if (!IsRelayed(result)) return;
  Require(message == expected.message, "a relayed request is the model's");
  CheckNextRelay(input, message);
  if (expected.has_ours) CheckEcho(input, message);
}

void CheckTarget(Bytes message) {
  const ReplyTarget target = dhcp_manager::TargetOf(
      {.data = message.data(), .size = message.size(), .capacity = message.size()});
  const Bytes yiaddr(message.begin() + 16, message.begin() + 20);
  const bool is_client =
      message[10] < 0x80 && yiaddr != Bytes(4) && message[1] == 1 && message[2] == 6;
  base::MacAddress mac{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  if (is_client) std::copy_n(message.begin() + 28, mac.size(), mac.begin());
  Require(target.mac == mac, "a reply goes to the client's hardware address or to all");
  const in_addr address = target.address.to_in_addr();
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&address);
  Require(Bytes(bytes, bytes + 4) == (is_client ? yiaddr : Bytes(4, 0xFF)),
          "a reply goes to yiaddr or to all");
}

void CheckReply(const Input& input) {
  const auto expected = fuzz::ModelReply(input.port, input.message);
  Memory memory(input.message, input.capacity);
  const ReplyResult result = RelayReply(input.port, memory.buffer());
  Require(result == expected.result, "a reply's result is the model's");
  const Bytes message = memory.message();
  if (result != ReplyResult::kRelay) return;
  Require(message == expected.message, "a relayed reply is the model's");
  CheckTarget(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kSettings || size > kLongest) return 0;
  const Input input = Take(data, size);
  Require(dhcp_manager::GiaddrOf(input.message.data(), input.message.size()).has_value() ==
              (input.message.size() >= 28),
          "giaddr is there when its bytes are");
  if (input.is_reply) {
    CheckReply(input);
  } else {
    CheckRequest(input);
  }
  return 0;
}
