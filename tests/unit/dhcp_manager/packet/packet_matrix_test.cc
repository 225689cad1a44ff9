// Packet in, packet out: the cases of matrix.py, each compared to the last byte.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "dhcp_manager/kernel/links.h"
#include "dhcp_manager/packet/relay_packet.h"
#include "dhcp_manager/table/forwarding.h"
#include "dhcp_manager/table/relay_table.h"
#include "tests/support/calls.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::MessageBuffer;
using dhcp_manager::RelayParameters;
using dhcp_manager::RelayTable;
using dhcp_manager::RequestVerdict;
using dhcp_relay::control::ReplyOutcome;
using dhcp_relay::control::RequestOutcome;
using dhcp_relay::wire::Policy;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kStale = 0xA5;
constexpr std::size_t kGuard = 64;
constexpr const char* kInstance = "r1";
constexpr const char* kInterface = "l3-5";

struct Case {
  std::string kind;
  std::string name;
  std::string giaddr;
  std::string settings;
  std::string override;
  std::string policy;
  std::string relay_agent_information;
  std::string own;
  std::size_t capacity = 0;
  std::string message;
  std::string result;
  std::string output;
};

std::ostream& operator<<(std::ostream& out, const Case& item) {
  return out << item.kind << ' ' << item.name;
}

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

nettypes::IPv4Addr Address(const std::string& text) {
  const auto address = nettypes::IPv4Addr::parse(text);
  if (!address) throw std::invalid_argument(text);
  return *address;
}

std::vector<Case> ReadCases() {
  std::ifstream file(VX_PACKET_CASES);
  std::vector<Case> cases;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream words(line);
    Case item;
    words >> item.kind >> item.name >> item.giaddr >> item.settings >> item.override >>
        item.policy >> item.relay_agent_information >> item.own >> item.capacity >> item.message >>
        item.result >> item.output;
    cases.push_back(item);
  }
  return cases;
}

// Applies the letters of `settings` to the instance, or those of an override to `interface`.
void SetFlags(const std::string& settings, const std::map<char, wire::Operation>& operations,
              const std::string& interface, RelayTable& table) {
  for (const char letter : settings) {
    const bool on = letter >= 'a';
    const auto operation = operations.find(on ? letter : static_cast<char>(letter - 'A' + 'a'));
    if (operation == operations.end()) continue;
    table.Apply(tests::FlagCall(operation->second, kInstance, on, interface));
  }
}

RelayTable TableOf(const Case& item) {
  const std::map<std::string, Policy> policies{
      {"keep", Policy::kKeep}, {"replace", Policy::kReplace}, {"drop", Policy::kDrop}};
  RelayTable table;
  table.Apply(tests::Call(wire::ADD_L3_INTERFACE, kInstance, kInterface));
  table.Apply(tests::AddressCall(wire::SET_L3_INTERFACE_ADDRESS, kInstance,
                                 Address(item.giaddr).host_order(), kInterface));
  table.Apply(tests::PolicyCall(wire::SET_POLICY, kInstance,
                                static_cast<std::uint32_t>(policies.at(item.policy))));
  SetFlags(item.settings,
           {{'c', wire::SET_CHECK}, {'t', wire::SET_TRUSTED}, {'o', wire::SET_OPTION}}, {}, table);
  SetFlags(item.override,
           {{'c', wire::SET_IF_OPTION_CHECK},
            {'t', wire::SET_IF_OPTION_TRUSTED},
            {'o', wire::SET_IF_OPTION_OPTION}},
           kInterface, table);
  return table;
}

// As the forwarding table has it, whose kernel interface has the address.
RelayParameters InterfaceOf(const Case& item) {
  dhcp_manager::Links links;
  links.SetLink({.index = 2, .name = "vlan2", .up = true, .vrf_table = {}});
  links.SetAddress({.link = 2, .address = Address(item.giaddr), .broadcast = {}});
  dhcp_manager::Trust trust;
  trust.drop_foreign_giaddr = item.settings.find('f') != std::string::npos;
  const dhcp_manager::Forwarding forwarding(TableOf(item), links, trust);
  RelayParameters interface = forwarding.interfaces().at(0).relay;
  interface.relay_agent_information = FromHex(item.relay_agent_information);
  return interface;
}

dhcp_manager::AddressSet OwnOf(const Case& item) {
  dhcp_manager::AddressSet own;
  std::istringstream words(item.own);
  for (std::string word; std::getline(words, word, ',');) {
    own.insert(Address(word).host_order());
  }
  return own;
}

std::string RelayRequestOf(const Case& item, MessageBuffer& message) {
  const std::map<RequestOutcome, std::string> names{
      {RequestOutcome::kRelayed, "relay"},
      {RequestOutcome::kMalformed, "malformed"},
      {RequestOutcome::kTooManyHops, "hops"},
      {RequestOutcome::kOwnGiaddr, "own-giaddr"},
      {RequestOutcome::kPolicyDrop, "policy"},
      {RequestOutcome::kUntrustedOption, "untrusted"},
      {RequestOutcome::kForeignGiaddr, "foreign-giaddr"}};
  const RequestVerdict verdict = RelayRequest(InterfaceOf(item), OwnOf(item), message);
  if (!verdict.option_left_out) return names.at(verdict.outcome);
  EXPECT_EQ(verdict.outcome, RequestOutcome::kRelayed);
  return "no-room";
}

std::string RelayReplyOf(const Case& item, MessageBuffer& message) {
  const std::map<ReplyOutcome, std::string> names{
      {ReplyOutcome::kRelayed, "relay"},
      {ReplyOutcome::kMalformed, "malformed"},
      {ReplyOutcome::kNoOption, "no-information"},
      {ReplyOutcome::kForeignOption, "foreign-information"}};
  return names.at(RelayReply(InterfaceOf(item), message));
}

class PacketMatrixTest : public ::testing::TestWithParam<Case> {};

TEST_P(PacketMatrixTest, ComesOutAsItMust) {
  const Case& item = GetParam();
  const Bytes input = FromHex(item.message);
  // What an earlier packet left in the buffer must not show.
  Bytes buffer(item.capacity + kGuard, kStale);
  std::copy(input.begin(), input.end(), buffer.begin());
  MessageBuffer message{.data = buffer.data(), .size = input.size(), .capacity = item.capacity};

  const std::string result =
      item.kind == "request" ? RelayRequestOf(item, message) : RelayReplyOf(item, message);
  ASSERT_EQ(result, item.result);
  EXPECT_EQ(Bytes(buffer.end() - kGuard, buffer.end()), Bytes(kGuard, kStale));
  if (item.output == "-") return;
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(message.size)),
            FromHex(item.output));
}

INSTANTIATE_TEST_SUITE_P(Cases, PacketMatrixTest, ::testing::ValuesIn(ReadCases()),
                         [](const auto& entry) {
                           return (entry.param.kind == "request" ? "Request" : "Reply") +
                                  entry.param.name;
                         });

}  // namespace
