#include <algorithm>
#include <string>

#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

constexpr std::uint8_t kCircuitId = 1;
constexpr std::uint8_t kRemoteId = 2;
constexpr std::size_t kLongestOption = 255;
constexpr std::size_t kSubOptionHeader = 2;

void AddSubOption(std::uint8_t code, const auto& value, std::vector<std::uint8_t>& information) {
  information.push_back(code);
  information.push_back(static_cast<std::uint8_t>(value.size()));
  information.insert(information.end(), value.begin(), value.end());
}

}  // namespace

std::vector<std::uint8_t> MakeRelayAgentInformation(std::string_view name,
                                                    std::optional<std::uint16_t> vlan,
                                                    const base::MacAddress& mac) {
  const std::string suffix = vlan ? ":" + std::to_string(*vlan) : std::string();
  const std::size_t room = kLongestOption - 2 * kSubOptionHeader - mac.size() - suffix.size();
  std::vector<std::uint8_t> information;
  AddSubOption(kCircuitId, std::string(name.substr(0, room)) + suffix, information);
  AddSubOption(kRemoteId, mac, information);
  return information;
}

}  // namespace dhcp_manager
