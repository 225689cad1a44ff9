// Packet in, packet out: the cases of matrix.py, each compared to the last byte.

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "dhcp_manager/packet/relay_packet.h"

namespace {

using dhcp_manager::MessageBuffer;
using dhcp_manager::RelayParameters;
using dhcp_manager::ReplyResult;
using dhcp_manager::RequestResult;
using dhcp_relay::wire::Policy;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kStale = 0xA5;
constexpr std::size_t kGuard = 64;

struct Case {
  std::string kind;
  std::string name;
  std::string giaddr;
  std::string settings;
  std::string policy;
  std::string information;
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
    words >> item.kind >> item.name >> item.giaddr >> item.settings >> item.policy >>
        item.information >> item.own >> item.capacity >> item.message >> item.result >> item.output;
    cases.push_back(item);
  }
  return cases;
}

RelayParameters PortOf(const Case& item) {
  const std::map<std::string, Policy> policies{
      {"keep", Policy::kKeep}, {"replace", Policy::kReplace}, {"drop", Policy::kDrop}};
  RelayParameters port;
  port.giaddr = Address(item.giaddr);
  port.check = item.settings.find('c') != std::string::npos;
  port.trusted = item.settings.find('t') != std::string::npos;
  port.option = item.settings.find('o') != std::string::npos;
  port.policy = policies.at(item.policy);
  port.information = FromHex(item.information);
  return port;
}

std::unordered_set<std::uint32_t> OwnOf(const Case& item) {
  std::unordered_set<std::uint32_t> own;
  std::istringstream words(item.own);
  for (std::string word; std::getline(words, word, ',');) {
    own.insert(Address(word).to_in_addr().s_addr);
  }
  return own;
}

std::string Relay(const Case& item, MessageBuffer& message) {
  if (item.kind == "request") {
    const std::map<RequestResult, std::string> names{
        {RequestResult::kRelay, "relay"},          {RequestResult::kRelayNoRoom, "no-room"},
        {RequestResult::kMalformed, "malformed"},  {RequestResult::kHops, "hops"},
        {RequestResult::kOwnGiaddr, "own-giaddr"}, {RequestResult::kUntrusted, "untrusted"},
        {RequestResult::kPolicyDrop, "policy"}};
    return names.at(RelayRequest(PortOf(item), OwnOf(item), message));
  }
  const std::map<ReplyResult, std::string> names{
      {ReplyResult::kRelay, "relay"},
      {ReplyResult::kMalformed, "malformed"},
      {ReplyResult::kNoInformation, "no-information"},
      {ReplyResult::kForeignInformation, "foreign-information"}};
  return names.at(RelayReply(PortOf(item), message));
}

class PacketMatrixTest : public ::testing::TestWithParam<Case> {};

TEST_P(PacketMatrixTest, ComesOutAsItMust) {
  const Case& item = GetParam();
  const Bytes input = FromHex(item.message);
  // What an earlier packet left in the buffer must not show.
  Bytes buffer(item.capacity + kGuard, kStale);
  std::copy(input.begin(), input.end(), buffer.begin());
  MessageBuffer message{.data = buffer.data(), .size = input.size(), .capacity = item.capacity};

  ASSERT_EQ(Relay(item, message), item.result);
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
