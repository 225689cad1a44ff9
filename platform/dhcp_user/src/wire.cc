#include "wire.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace dhcp_relay::wire {
namespace {

constexpr char kDefaultRuntimeDirectory[] = "/run/dhcp-manager";
constexpr std::uint32_t kHighestPolicy = 2;
constexpr std::uint32_t kHighestVlan = 0xFFFF;

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

bool IsName(const std::string& name) { return !name.empty() && name.size() <= kNameBound; }

}  // namespace

std::span<const OperationInfo> Operations() { return kOperations; }

const OperationInfo* FindOperation(Operation operation) {
  const auto index = static_cast<std::size_t>(operation) - 1;
  return index < kOperations.size() ? &kOperations[index] : nullptr;
}

std::optional<std::string> Fault(const Call& call) {
  const OperationInfo* info = FindOperation(call.operation());
  if (info == nullptr) return "unknown operation " + std::to_string(call.operation());
  const std::string operation = info->name;
  const std::string bound = std::to_string(kNameBound);
  if (!IsName(call.instance())) {
    return operation + ": the instance's name must have 1 to " + bound + " bytes";
  }
  if (info->has_name ? !IsName(call.name()) : !call.name().empty()) {
    return operation + (info->has_name ? ": a name must have 1 to " + bound + " bytes"
                                       : std::string(": takes no name besides the instance's"));
  }
  if (KindOf(call) != info->value) return operation + ": wrong kind of argument";
  if (info->value == ValueKind::kPolicy && call.policy() > kHighestPolicy) {
    return operation + ": unknown policy " + std::to_string(call.policy());
  }
  if (info->value == ValueKind::kVlan && call.vlan() > kHighestVlan) {
    return operation + ": impossible VLAN id " + std::to_string(call.vlan());
  }
  return std::nullopt;
}

Descriptor::~Descriptor() {
  if (fd_ >= 0) close(fd_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

sockaddr_un SocketAddress(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string& text = path.native();
  if (text.size() >= sizeof(address.sun_path)) {
    throw WireError("the path of the socket " + text + " is longer than " +
                    std::to_string(sizeof(address.sun_path) - 1) + " bytes");
  }
  std::memcpy(address.sun_path, text.data(), text.size());
  return address;
}

std::filesystem::path RuntimeDirectory() {
  const char* directory = std::getenv("DHCP_MANAGER_DIR");
  return directory != nullptr && *directory != '\0' ? directory : kDefaultRuntimeDirectory;
}

std::optional<uid_t> PeerUser(int fd) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer.uid;
}

bool IsTrustedPeer(int fd) {
  const auto user = PeerUser(fd);
  return user && (*user == 0 || *user == geteuid());
}

SendResult SendPacket(int fd, const std::string& packet) {
  while (true) {
    if (send(fd, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
      return SendResult::kSent;
    }
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == ENOBUFS ? SendResult::kFull : SendResult::kLost;
  }
}

PacketReader::Result PacketReader::Receive(int fd) {
  while (true) {
    const ssize_t received = recv(fd, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (received < 0 && errno == EINTR) continue;
    if (received < 0 && errno == EAGAIN) return Result::kNothing;
    if (received <= 0) return Result::kClosed;
    size_ = static_cast<std::size_t>(received);
    if (size_ > kPacketBound) {
      throw WireError("a packet is larger than " + std::to_string(kPacketBound) + " bytes");
    }
    return Result::kPacket;
  }
}

}  // namespace dhcp_relay::wire
