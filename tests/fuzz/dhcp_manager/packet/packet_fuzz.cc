// Fuzzes the packet rules with messages. Input: settings (bit 0 check, 1 trusted, 2 option,
// 3 and 4 policy, 5 a reply, 6 another relay's giaddr is dropped), room behind the message, length
// of the interface's name, message.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "dhcp_manager/packet/relay_packet.h"
#include "tests/fuzz/dhcp_manager/packet/relay_model.h"
#include "tests/fuzz/require.h"

namespace {

using base::MacAddress;
using dhcp_manager::MakeRelayAgentInformation;
using dhcp_manager::MessageBuffer;
using dhcp_manager::RelayParameters;
using dhcp_manager::ReplyTarget;
using dhcp_manager::RequestVerdict;
using dhcp_relay::control::ReplyOutcome;
using dhcp_relay::control::RequestOutcome;
using dhcp_relay::wire::Policy;
using fuzz::Bytes;
using fuzz::Require;

constexpr std::size_t kSettings = 3;
constexpr std::size_t kMaxSize = 2048;
constexpr std::uint8_t kStale = 0xAA;
constexpr std::uint16_t kVlan = 4094;
constexpr base::MacAddress kMac{2, 0, 0, 0, 0, 5};

struct Input {
  RelayParameters interface;
  bool is_reply;
  std::size_t capacity;
  Bytes message;
};

Input Take(const std::uint8_t* data, std::size_t size) {
  const auto bit = [&](unsigned int number) { return (data[0] >> number & 1) != 0; };
  Input input;
  input.interface.giaddr = *nettypes::IPv4Addr::parse("192.168.5.1");
  input.interface.check = bit(0);
  input.interface.trusted = bit(1);
  input.interface.option = bit(2);
  input.interface.policy = static_cast<Policy>((data[0] >> 3 & 3) % 3);
  input.is_reply = bit(5);
  input.interface.drop_foreign_giaddr = bit(6);
  input.interface.relay_agent_information = MakeRelayAgentInformation(
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

// The next relay's turn, set up as this one: it changes nothing but hops.
void CheckNextRelay(const Input& input, const Bytes& relayed) {
  if (input.interface.option && input.interface.policy == Policy::kDrop) return;
  Memory next(relayed, std::max(input.capacity, relayed.size()));
  RelayParameters interface = input.interface;
  interface.drop_foreign_giaddr = false;
  const RequestVerdict verdict = RelayRequest(interface, {}, next.buffer());
  if (relayed[3] > 16) {
    Require(verdict.outcome == RequestOutcome::kTooManyHops, "the seventeenth relay drops it");
    return;
  }
  Require(verdict.outcome == RequestOutcome::kRelayed && !verdict.option_left_out,
          "what was relayed can be relayed again");
  Bytes expected = relayed;
  ++expected[3];
  Require(next.message() == expected, "relaying again changes nothing but hops");
}

// A server that sends back what it got: its reply reaches the client as if no relay had been there.
void CheckEcho(const Input& input, Bytes relayed) {
  relayed[0] = 2;
  Memory echo(relayed, relayed.size());
  Require(RelayReply(input.interface, echo.buffer()) == ReplyOutcome::kRelayed,
          "our own option is known again");
  Require(fuzz::OptionsWithoutRelayAgent(echo.message()) ==
              fuzz::OptionsWithoutRelayAgent(input.message),
          "the client's options come back");
}

void CheckRequest(const Input& input) {
  const dhcp_manager::AddressSet own{input.interface.giaddr.host_order(),
                                     nettypes::IPv4Addr::parse("10.0.0.254")->host_order()};
  const auto expected = fuzz::ModelRequest(input.interface, own, input.capacity, input.message);
  Memory memory(input.message, input.capacity);
  const RequestVerdict verdict = RelayRequest(input.interface, own, memory.buffer());
  Require(verdict.outcome == expected.verdict.outcome &&
              verdict.option_left_out == expected.verdict.option_left_out,
          "a request's verdict is the model's");
  const Bytes message = memory.message();
  if (verdict.outcome != RequestOutcome::kRelayed) return;
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
  const std::uint32_t address = target.address.host_order();
  const Bytes bytes{static_cast<std::uint8_t>(address >> 24),
                    static_cast<std::uint8_t>(address >> 16),
                    static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)};
  Require(bytes == (is_client ? yiaddr : Bytes(4, 0xFF)), "a reply goes to yiaddr or to all");
}

void CheckReply(const Input& input) {
  const auto expected = fuzz::ModelReply(input.interface, input.message);
  Memory memory(input.message, input.capacity);
  const ReplyOutcome outcome = RelayReply(input.interface, memory.buffer());
  Require(outcome == expected.outcome, "a reply's outcome is the model's");
  const Bytes message = memory.message();
  if (outcome != ReplyOutcome::kRelayed) return;
  Require(message == expected.message, "a relayed reply is the model's");
  CheckTarget(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kSettings || size > kMaxSize) return 0;
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
