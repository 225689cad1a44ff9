#include <algorithm>
#include <string>

#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

constexpr std::uint8_t kCircuitId = 1;
constexpr std::uint8_t kRemoteId = 2;
constexpr std::size_t kMaxOptionSize = 255;
constexpr std::size_t kSubOptionHeader = 2;

void AddSubOption(std::uint8_t code, const auto& value,
                  std::vector<std::uint8_t>& relay_agent_information) {
  relay_agent_information.push_back(code);
  relay_agent_information.push_back(static_cast<std::uint8_t>(value.size()));
  relay_agent_information.insert(relay_agent_information.end(), value.begin(), value.end());
}

}  // namespace

std::vector<std::uint8_t> MakeRelayAgentInformation(std::string_view name,
                                                    std::optional<std::uint16_t> vlan,
                                                    const base::MacAddress& mac) {
  const std::string suffix = vlan ? ":" + std::to_string(*vlan) : std::string();
  const std::size_t room = kMaxOptionSize - 2 * kSubOptionHeader - mac.size() - suffix.size();
  std::vector<std::uint8_t> relay_agent_information;
  AddSubOption(kCircuitId, std::string(name.substr(0, room)) + suffix, relay_agent_information);
  AddSubOption(kRemoteId, mac, relay_agent_information);
  return relay_agent_information;
}

}  // namespace dhcp_manager
