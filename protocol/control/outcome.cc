#include "protocol/control/outcome.h"

#include <array>

#include "protocol/control/enumerator_name.h"

namespace dhcp_relay::control {

#define DHCP_RELAY_NAME(name) NameOfEnumerator(#name),

std::span<const std::string> RequestOutcomes() {
  static const std::array kNames{DHCP_RELAY_REQUEST_OUTCOMES(DHCP_RELAY_NAME)};
  return kNames;
}

std::span<const std::string> ReplyOutcomes() {
  static const std::array kNames{DHCP_RELAY_REPLY_OUTCOMES(DHCP_RELAY_NAME)};
  return kNames;
}

std::span<const std::string> UnmatchedOutcomes() {
  static const std::array kNames{DHCP_RELAY_UNMATCHED_OUTCOMES(DHCP_RELAY_NAME)};
  return kNames;
}

#undef DHCP_RELAY_NAME

const std::string& Name(RequestOutcome outcome) {
  return RequestOutcomes()[static_cast<std::size_t>(outcome)];
}

const std::string& Name(ReplyOutcome outcome) {
  return ReplyOutcomes()[static_cast<std::size_t>(outcome)];
}

const std::string& Name(UnmatchedOutcome outcome) {
  return UnmatchedOutcomes()[static_cast<std::size_t>(outcome)];
}

}  // namespace dhcp_relay::control
