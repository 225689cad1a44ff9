#include "dhcp_manager/datapath/headers.h"

#include <arpa/inet.h>
#include <netinet/ip.h>
#include <netinet/udp.h>

#include <cstring>

namespace dhcp_manager {
namespace {

constexpr std::size_t kIpSize = 20;
constexpr std::size_t kUdpSize = 8;
constexpr std::uint8_t kTimeToLive = 64;
constexpr std::uint16_t kFragmentBits = 0x3FFF;  // offset and More Fragments

// Ones' complement sums (RFC 1071) of words as they lie in memory: byte order does not matter for
// them.
std::uint64_t Sum(const std::uint8_t* data, std::size_t size, std::uint64_t sum) {
  for (; size >= sizeof(std::uint32_t); size -= sizeof(std::uint32_t)) {
    std::uint32_t word = 0;
    std::memcpy(&word, data, sizeof(word));
    sum += word;
    data += sizeof(word);
  }
  std::uint32_t rest = 0;
  std::memcpy(&rest, data, size);
  return sum + rest;
}

std::uint16_t Fold(std::uint64_t sum) {
  sum = (sum & 0xFFFFFFFFU) + (sum >> 32U);
  sum = (sum & 0xFFFFFFFFU) + (sum >> 32U);
  sum = (sum & 0xFFFFU) + (sum >> 16U);
  sum = (sum & 0xFFFFU) + (sum >> 16U);
  return static_cast<std::uint16_t>(sum);
}

// Sum of the pseudo header's addresses, protocol and length, to which header and payload are added.
std::uint64_t PseudoHeader(const std::uint8_t* ip, std::size_t udp_size) {
  constexpr std::size_t kAddresses = 12;
  return Sum(ip + kAddresses, 2 * sizeof(in_addr), 0) + htons(IPPROTO_UDP) +
         htons(static_cast<std::uint16_t>(udp_size));
}

// Where the UDP header begins, and how many bytes follow from there on.
struct UdpPart {
  std::size_t position;
  std::size_t size;
};

// A packet socket sees packets before the kernel checks their headers. The sum is there even where
// that of UDP is left to the device: the kernel makes it for each packet that it sends itself.
bool IsHeaderSumRight(const std::uint8_t* packet, std::size_t header_size) {
  return Fold(Sum(packet, header_size, 0)) == 0xFFFF;
}

// Nothing when the IPv4 header is not that of a whole, unfragmented datagram.
std::optional<UdpPart> FindUdp(const std::uint8_t* packet, std::size_t size) {
  if (size < kIpSize + kUdpSize) return std::nullopt;
  ip header{};
  std::memcpy(&header, packet, sizeof(header));
  const std::size_t header_size = header.ip_hl * sizeof(std::uint32_t);
  const std::size_t total = ntohs(header.ip_len);
  if (header.ip_v != IPVERSION || header_size < kIpSize || total > size ||
      total < header_size + kUdpSize || header.ip_p != IPPROTO_UDP ||
      (ntohs(header.ip_off) & kFragmentBits) != 0 || !IsHeaderSumRight(packet, header_size)) {
    return std::nullopt;
  }
  return UdpPart{.position = header_size, .size = total - header_size};
}

void WriteIpHeader(nettypes::IPv4Addr source, nettypes::IPv4Addr destination, std::size_t udp_size,
                   std::uint8_t* start) {
  ip header{};
  header.ip_v = IPVERSION;
  header.ip_hl = kIpSize / sizeof(std::uint32_t);
  header.ip_len = htons(static_cast<std::uint16_t>(kIpSize + udp_size));
  header.ip_off = htons(IP_DF);
  header.ip_ttl = kTimeToLive;
  header.ip_p = IPPROTO_UDP;
  header.ip_src = source.to_in_addr();
  header.ip_dst = destination.to_in_addr();
  std::memcpy(start, &header, sizeof(header));
  header.ip_sum = static_cast<std::uint16_t>(~Fold(Sum(start, kIpSize, 0)));
  std::memcpy(start, &header, sizeof(header));
}

// The IPv4 header and the payload are in their places: the checksum covers them.
void WriteUdpHeader(std::size_t udp_size, std::uint8_t* start) {
  udphdr header{};
  header.source = htons(kServerPort);
  header.dest = htons(kClientPort);
  header.len = htons(static_cast<std::uint16_t>(udp_size));
  std::memcpy(start + kIpSize, &header, sizeof(header));
  const auto sum = static_cast<std::uint16_t>(
      ~Fold(Sum(start + kIpSize, udp_size, PseudoHeader(start, udp_size))));
  header.check = sum == 0 ? 0xFFFF : sum;
  std::memcpy(start + kIpSize, &header, sizeof(header));
}

}  // namespace

nettypes::IPv4Addr DestinationOf(const std::uint8_t* packet) {
  constexpr std::size_t kDestination = 16;
  in_addr address{};
  std::memcpy(&address, packet + kDestination, sizeof(address));
  return nettypes::IPv4Addr(address);
}

std::optional<UdpPayload> ParseUdp(std::uint8_t* packet, std::size_t size, bool verify) {
  const auto part = FindUdp(packet, size);
  if (!part) return std::nullopt;
  std::uint8_t* const udp = packet + part->position;
  udphdr header{};
  std::memcpy(&header, udp, sizeof(header));
  const std::size_t udp_size = ntohs(header.len);
  if (udp_size < kUdpSize || udp_size > part->size || ntohs(header.dest) != kServerPort) {
    return std::nullopt;
  }
  // RFC 768: a checksum of 0 says that the sender made none.
  if (verify && header.check != 0 &&
      Fold(Sum(udp, udp_size, PseudoHeader(packet, udp_size))) != 0xFFFF) {
    return std::nullopt;
  }
  return UdpPayload{.data = udp + kUdpSize, .size = udp_size - kUdpSize};
}

void WriteHeaders(nettypes::IPv4Addr source, nettypes::IPv4Addr destination, std::uint8_t* payload,
                  std::size_t size) {
  const std::size_t udp_size = kUdpSize + size;
  std::uint8_t* const start = payload - kHeadersSize;
  WriteIpHeader(source, destination, udp_size, start);
  WriteUdpHeader(udp_size, start);
}

}  // namespace dhcp_manager
