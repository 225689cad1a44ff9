#include "protocol/wire/policy.h"

namespace dhcp_relay::wire {

const char* PolicyName(Policy policy) {
  switch (policy) {
    case Policy::kDrop:
      return "drop";
    case Policy::kKeep:
      return "keep";
    case Policy::kReplace:
      return "replace";
  }
  return "unknown";
}

}  // namespace dhcp_relay::wire
