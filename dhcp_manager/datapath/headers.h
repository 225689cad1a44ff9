// IPv4 and UDP around a message of a client (RFC 791, RFC 768).

#ifndef DHCP_MANAGER_DATAPATH_HEADERS_H_
#define DHCP_MANAGER_DATAPATH_HEADERS_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include <nettypes/ipv4_addr.h>

namespace dhcp_manager {

inline constexpr std::uint16_t kServerPort = 67;
inline constexpr std::uint16_t kClientPort = 68;

// IPv4 without options, and UDP.
inline constexpr std::size_t kHeadersSize = 28;

struct UdpPayload {
  std::uint8_t* data;
  std::size_t size;
};

// The destination of a packet of at least 20 bytes.
nettypes::IPv4Addr DestinationOf(const std::uint8_t* packet);

// The payload of a whole, unfragmented UDP datagram for port 67 that begins with its IPv4 header;
// nothing when the headers are invalid, the IPv4 header's checksum is wrong or, where `verify` asks
// for it, that of UDP.
std::optional<UdpPayload> ParseUdp(std::uint8_t* packet, std::size_t size, bool verify);

// Writes the headers of a datagram from port 67 of `source` to port 68 of `destination` into the
// kHeadersSize bytes before `payload`, of which `size` bytes follow, at most 65507.
void WriteHeaders(nettypes::IPv4Addr source, nettypes::IPv4Addr destination, std::uint8_t* payload,
                  std::size_t size);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_HEADERS_H_
