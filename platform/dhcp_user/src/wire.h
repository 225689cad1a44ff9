// Framing and rules of the wire protocol between the DHCP manager and its client.

#ifndef DHCP_USER_WIRE_H_
#define DHCP_USER_WIRE_H_

#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "wire.pb.h"

namespace dhcp_relay::wire {

inline constexpr std::uint32_t kVersion = 1;

// Largest packet that is sent or accepted, in bytes.
inline constexpr std::size_t kPacketBound = 64 * 1024;

// Longest name of an instance, interface or override, in bytes.
inline constexpr std::size_t kNameBound = 255;

inline constexpr char kSocketName[] = "relay.sock";

class WireError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The argument an operation takes.
enum class ValueKind { kNone, kAddress, kVlan, kIdentifier, kFlag, kPolicy };

struct OperationInfo {
  Operation operation;
  const char* name;  // as the client's operation is called
  bool has_name;     // concerns an interface or override
  ValueKind value;
};

// Every operation, in the order of its number.
std::span<const OperationInfo> Operations();

// Null for a number that is no operation.
const OperationInfo* FindOperation(Operation operation);

// What is wrong with a call; nothing when it is as its operation wants it.
std::optional<std::string> Fault(const Call& call);

// A file descriptor, closed when it goes; -1 is none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

// The address of a socket file. Throws WireError when the path is too long for one.
sockaddr_un SocketAddress(const std::filesystem::path& path);

// The directory of the manager's sockets: DHCP_MANAGER_DIR, else /run/dhcp-manager.
std::filesystem::path RuntimeDirectory();

// User id of the process at the other end.
std::optional<uid_t> PeerUser(int fd);

// Whether the process at the other end runs as root or as this process's user.
bool IsTrustedPeer(int fd);

enum class SendResult { kSent, kFull, kLost };

// Sends one packet without waiting.
SendResult SendPacket(int fd, const std::string& packet);

// Receives packets without waiting, into one buffer that is used again.
class PacketReader {
 public:
  PacketReader() : buffer_(kPacketBound + 1) {}

  enum class Result { kPacket, kNothing, kClosed };

  // Throws WireError for a packet over the bound.
  Result Receive(int fd);

  // The latest packet; valid until the next Receive.
  std::span<const char> packet() const { return {buffer_.data(), size_}; }

  // Throws WireError when the latest packet is no such message.
  template <typename Message>
  void Parse(Message& message) const {
    if (!message.ParseFromArray(buffer_.data(), static_cast<int>(size_))) {
      throw WireError("a packet of " + std::to_string(size_) + " bytes is not a message");
    }
  }

 private:
  std::vector<char> buffer_;
  std::size_t size_ = 0;
};

}  // namespace dhcp_relay::wire

#endif  // DHCP_USER_WIRE_H_
