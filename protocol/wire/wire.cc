#include "protocol/wire/wire.h"

#include <array>

#include "protocol/wire/policy.h"

namespace dhcp_relay::wire {
namespace {

constexpr auto kMaxPolicy = static_cast<std::uint32_t>(Policy::kReplace);
constexpr std::uint32_t kMaxVlan = 0xFFFF;

constexpr std::array kOperations{
    OperationInfo{ADD_SERVER, "AddServer", false, ValueKind::kAddress},
    OperationInfo{DELETE_SERVER, "DeleteServer", false, ValueKind::kAddress},
    OperationInfo{DELETE_INSTANCE, "DeleteInstance", false, ValueKind::kNone},
    OperationInfo{ADD_L3_INTERFACE, "AddL3Interface", true, ValueKind::kNone},
    OperationInfo{SET_L3_INTERFACE_ADDRESS, "SetL3InterfaceAddress", true, ValueKind::kAddress},
    OperationInfo{SET_VRF, "SetVrf", false, ValueKind::kIdentifier},
    OperationInfo{SET_L3_INTERFACE_VLAN, "SetL3InterfaceVlan", true, ValueKind::kVlan},
    OperationInfo{DELETE_L3_INTERFACE_VLAN, "DeleteL3InterfaceVlan", true, ValueKind::kVlan},
    OperationInfo{DELETE_L3_INTERFACE, "DeleteL3Interface", true, ValueKind::kNone},
    OperationInfo{SET_TRUSTED, "SetTrusted", false, ValueKind::kFlag},
    OperationInfo{SET_OPTION, "SetOption", false, ValueKind::kFlag},
    OperationInfo{SET_CHECK, "SetCheck", false, ValueKind::kFlag},
    OperationInfo{SET_POLICY, "SetPolicy", false, ValueKind::kPolicy},
    OperationInfo{ADD_IF_OPTION, "AddIfOption", true, ValueKind::kNone},
    OperationInfo{DELETE_IF_OPTION, "DeleteIfOption", true, ValueKind::kNone},
    OperationInfo{SET_IF_OPTION_TRUSTED, "SetIfOptionTrusted", true, ValueKind::kFlag},
    OperationInfo{SET_IF_OPTION_OPTION, "SetIfOptionOption", true, ValueKind::kFlag},
    OperationInfo{SET_IF_OPTION_CHECK, "SetIfOptionCheck", true, ValueKind::kFlag},
    OperationInfo{SET_IF_OPTION_POLICY, "SetIfOptionPolicy", true, ValueKind::kPolicy},
};

ValueKind KindOf(const Call& call) {
  switch (call.value_case()) {
    case Call::kAddress:
      return ValueKind::kAddress;
    case Call::kVlan:
      return ValueKind::kVlan;
    case Call::kIdentifier:
      return ValueKind::kIdentifier;
    case Call::kFlag:
      return ValueKind::kFlag;
    case Call::kPolicy:
      return ValueKind::kPolicy;
    case Call::VALUE_NOT_SET:
      break;
  }
  return ValueKind::kNone;
}

bool IsName(const std::string& name) { return !name.empty() && name.size() <= kMaxNameSize; }

std::string FaultOfSize(const std::string& which) {
  return which + " must have 1 to " + std::to_string(kMaxNameSize) + " bytes";
}

std::optional<std::string> FaultOfNames(const Call& call, const OperationInfo& info) {
  if (!IsName(call.instance())) return FaultOfSize("the instance's name");
  if (info.has_name && !IsName(call.name())) return FaultOfSize("a name");
  if (!info.has_name && !call.name().empty()) return "takes no name besides the instance's";
  return std::nullopt;
}

std::optional<std::string> FaultOfValue(const Call& call, const OperationInfo& info) {
  if (KindOf(call) != info.value) return "wrong kind of argument";
  if (info.value == ValueKind::kPolicy && call.policy() > kMaxPolicy) {
    return "unknown policy " + std::to_string(call.policy());
  }
  if (info.value == ValueKind::kVlan && call.vlan() > kMaxVlan) {
    return "impossible VLAN id " + std::to_string(call.vlan());
  }
  return std::nullopt;
}

}  // namespace

std::span<const OperationInfo> Operations() { return kOperations; }

const OperationInfo* FindOperation(Operation operation) {
  const auto index = static_cast<std::size_t>(operation) - 1;
  return index < kOperations.size() ? &kOperations[index] : nullptr;
}

std::optional<std::string> Fault(const Call& call) {
  const OperationInfo* const info = FindOperation(call.operation());
  if (info == nullptr) return "unknown operation " + std::to_string(call.operation());
  auto fault = FaultOfNames(call, *info);
  if (!fault) fault = FaultOfValue(call, *info);
  if (fault) fault->insert(0, std::string(info->name) + ": ");
  return fault;
}

}  // namespace dhcp_relay::wire
