#include "protocol/control/outcome.h"

#include <cctype>

namespace dhcp_relay::control {
namespace {

#define DHCP_RELAY_TEXT(name) #name,
constexpr std::array kRequestNames{DHCP_RELAY_REQUEST_OUTCOMES(DHCP_RELAY_TEXT)};
constexpr std::array kReplyNames{DHCP_RELAY_REPLY_OUTCOMES(DHCP_RELAY_TEXT)};
constexpr std::array kUnmatchedNames{DHCP_RELAY_UNMATCHED_OUTCOMES(DHCP_RELAY_TEXT)};
#undef DHCP_RELAY_TEXT

// "too-many-hops" of "kTooManyHops".
std::string Dashed(std::string_view enumerator) {
  std::string name;
  for (const char letter : enumerator.substr(1)) {
    const bool upper = std::isupper(static_cast<unsigned char>(letter)) != 0;
    if (upper && !name.empty()) name.push_back('-');
    name.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(letter))));
  }
  return name;
}

}  // namespace

std::string Name(RequestOutcome outcome) {
  return Dashed(kRequestNames.at(static_cast<std::size_t>(outcome)));
}
std::string Name(ReplyOutcome outcome) {
  return Dashed(kReplyNames.at(static_cast<std::size_t>(outcome)));
}
std::string Name(UnmatchedOutcome outcome) {
  return Dashed(kUnmatchedNames.at(static_cast<std::size_t>(outcome)));
}

}  // namespace dhcp_relay::control
