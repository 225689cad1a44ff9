// Fuzzes the parser of clients' datagrams and the writer of the datagrams for clients. Input: bit 0
// whether the checksum is verified, bit 1 whether the header's checksum is made right first, which
// no fuzzer would guess; then the bytes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "dhcp_manager/datapath/headers.h"
#include "tests/fuzz/require.h"

namespace {

using dhcp_manager::kHeadersSize;
using fuzz::Require;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMaxSize = 4096;
constexpr std::size_t kIpSize = 20;

// The Internet checksum over 16-bit words in network byte order; 0xFFFF when it is right.
std::uint32_t Checksum(Bytes bytes) {
  bytes.resize((bytes.size() + 1) / 2 * 2);
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    sum += static_cast<std::uint32_t>(bytes[i] << 8 | bytes[i + 1]);
    sum = (sum & 0xFFFF) + (sum >> 16);
  }
  return sum;
}

// The datagram with the pseudo header before it.
Bytes Checked(const Bytes& packet) {
  Bytes bytes(packet.begin() + 12, packet.begin() + kIpSize);
  const std::size_t size = packet.size() - kIpSize;
  bytes.push_back(0);
  bytes.push_back(packet[9]);
  bytes.push_back(static_cast<std::uint8_t>(size >> 8));
  bytes.push_back(static_cast<std::uint8_t>(size));
  bytes.insert(bytes.end(), packet.begin() + kIpSize, packet.end());
  return bytes;
}

void SumHeader(Bytes& packet) {
  if (packet.empty() || packet.size() < std::size_t{4} * (packet[0] & 0x0F)) return;
  Bytes header(packet.begin(), packet.begin() + 4 * (packet[0] & 0x0F));
  if (header.size() < kIpSize) return;
  header[10] = header[11] = 0;
  const std::uint32_t sum = ~Checksum(header);
  packet[10] = static_cast<std::uint8_t>(sum >> 8);
  packet[11] = static_cast<std::uint8_t>(sum);
}

void CheckParse(Bytes packet, bool verify) {
  const Bytes before = packet;
  const auto payload = dhcp_manager::ParseUdp(packet.data(), packet.size(), verify);
  Require(packet == before, "parsing changes nothing");
  if (!payload) return;
  Require(payload->data >= packet.data() + kHeadersSize &&
              payload->data + payload->size <= packet.data() + packet.size(),
          "the payload lies in the packet, behind its headers");
  Require(Checksum(Bytes(packet.begin(), packet.begin() + 4 * (packet[0] & 0x0F))) == 0xFFFF,
          "the header's checksum was right");
  dhcp_manager::DestinationOf(packet.data());
}

void CheckWrite(const Bytes& payload) {
  Bytes packet(kHeadersSize);
  packet.insert(packet.end(), payload.begin(), payload.end());
  dhcp_manager::WriteHeaders(*nettypes::IPv4Addr::parse("192.168.5.1"),
                             *nettypes::IPv4Addr::parse("192.168.5.77"),
                             packet.data() + kHeadersSize, payload.size());
  Require(Bytes(packet.begin() + kHeadersSize, packet.end()) == payload, "the payload stays");
  Require(Checksum(Bytes(packet.begin(), packet.begin() + kIpSize)) == 0xFFFF,
          "the header's checksum is right");
  Require(Checksum(Checked(packet)) == 0xFFFF, "the datagram's checksum is right");
  Require(packet[26] != 0 || packet[27] != 0, "the datagram has a checksum");
  Require(dhcp_manager::DestinationOf(packet.data()).to_string() == "192.168.5.77",
          "the destination is the one given");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > kMaxSize) return 0;
  Bytes bytes(data + 1, data + size);
  if ((data[0] & 2) != 0) SumHeader(bytes);
  CheckParse(bytes, data[0] % 2 == 1);
  CheckWrite(bytes);
  return 0;
}
