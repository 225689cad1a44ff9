// Packets between processes of one machine, over Unix SEQPACKET sockets: one message a packet.

#ifndef BASE_PACKET_SOCKET_H_
#define BASE_PACKET_SOCKET_H_

#include <sys/types.h>
#include <sys/un.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace base {

// Largest packet that is sent or accepted, in bytes.
inline constexpr std::size_t kMaxPacketSize = 64 * 1024;

// A connection that cannot be used, or a peer that breaks the protocol.
class ConnectionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The address of a socket file. Throws ConnectionError when the path is too long for one.
sockaddr_un SocketAddress(const std::filesystem::path& path);

// A new socket, closed on exec. `flags` may hold SOCK_NONBLOCK. Throws std::system_error.
Descriptor MakePacketSocket(int flags);

// A socket connected to the file. `flags` as above. Throws std::system_error, or ConnectionError as
// SocketAddress does.
Descriptor ConnectPacketSocket(const std::filesystem::path& path, int flags);

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
  PacketReader() : buffer_(kMaxPacketSize + 1) {}

  enum class Result { kPacket, kNothing, kClosed };

  // Throws ConnectionError for a packet over kMaxPacketSize.
  Result Receive(int fd);

  // The latest packet; valid until the next Receive.
  std::span<const char> packet() const { return {buffer_.data(), size_}; }

  // Throws ConnectionError when the latest packet is no such message.
  template <typename Message>
  void Parse(Message& message) const {
    if (!message.ParseFromArray(buffer_.data(), static_cast<int>(size_))) {
      throw ConnectionError("a packet of " + std::to_string(size_) + " bytes is not a message");
    }
  }

 private:
  std::vector<char> buffer_;
  std::size_t size_ = 0;
};

}  // namespace base

#endif  // BASE_PACKET_SOCKET_H_
