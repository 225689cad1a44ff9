// IPv4 and UDP around a message.

#include "dhcp_manager/datapath/headers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using dhcp_manager::kHeadersSize;
using dhcp_manager::ParseUdp;
using Bytes = std::vector<std::uint8_t>;

nettypes::IPv4Addr Ip(const std::string& text) { return *nettypes::IPv4Addr::parse(text); }

// From 192.0.2.7 port 68 to 192.0.2.1 port 67: "ab", with the checksums worked out by hand.
Bytes Datagram() {
  return {0x45, 0,   0, 30, 0, 0, 0x40, 0, 64, 17, 0xB6, 0xC6, 192,  0,   2,
          7,    192, 0, 2,  1, 0, 68,   0, 67, 0,  10,   0x19, 0xE8, 'a', 'b'};
}

// The sum that RFC 1071 defines, of 16-bit words; 0xFFFF over what is right.
std::uint16_t Sum(const std::uint8_t* data, std::size_t size, std::uint32_t sum = 0) {
  for (std::size_t i = 0; i < size; ++i) {
    sum += i % 2 == 0 ? static_cast<std::uint32_t>(data[i]) << 8U : data[i];
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFFU) + (sum >> 16U);
  return static_cast<std::uint16_t>(sum);
}

// Makes the IPv4 header's checksum right again, for the header that the packet says it has.
void SumHeader(Bytes& packet) {
  packet[10] = packet[11] = 0;
  const std::size_t size = std::min(std::size_t{4} * (packet[0] & 0x0FU), packet.size());
  const std::uint16_t sum = Sum(packet.data(), size);
  packet[10] = static_cast<std::uint8_t>(~sum >> 8U);
  packet[11] = static_cast<std::uint8_t>(~sum);
}

TEST(ParseUdpTest, GivesThePayload) {
  Bytes packet = Datagram();
  const auto payload = ParseUdp(packet.data(), packet.size(), true);
  ASSERT_TRUE(payload);
  EXPECT_EQ(std::string(payload->data, payload->data + payload->size), "ab");
  EXPECT_EQ(dhcp_manager::DestinationOf(packet.data()), Ip("192.0.2.1"));
}

TEST(ParseUdpTest, LeavesThePaddingOfTheFrameOut) {
  Bytes packet = Datagram();
  packet.resize(46);
  const auto payload = ParseUdp(packet.data(), packet.size(), true);
  ASSERT_TRUE(payload);
  EXPECT_EQ(payload->size, 2U);
}

TEST(ParseUdpTest, SkipsIpOptions) {
  Bytes packet = Datagram();
  packet.insert(packet.begin() + 20, {1, 1, 1, 0});
  packet[0] = 0x46;
  packet[3] = 34;
  SumHeader(packet);
  const auto payload = ParseUdp(packet.data(), packet.size(), true);
  ASSERT_TRUE(payload);
  EXPECT_EQ(payload->data[0], 'a');
}

TEST(ParseUdpTest, RefusesAWrongChecksumWhereNobodyHasLooked) {
  Bytes packet = Datagram();
  packet[29] ^= 1U;
  EXPECT_FALSE(ParseUdp(packet.data(), packet.size(), true));
  EXPECT_TRUE(ParseUdp(packet.data(), packet.size(), false));
}

TEST(ParseUdpTest, RefusesAWrongHeaderChecksumAlways) {
  for (std::size_t at = 0; at < 20; ++at) {
    Bytes packet = Datagram();
    packet[at] ^= 0x10U;
    EXPECT_FALSE(ParseUdp(packet.data(), packet.size(), true)) << at;
    EXPECT_FALSE(ParseUdp(packet.data(), packet.size(), false)) << at;
  }
}

TEST(ParseUdpTest, TheHeaderChecksumCoversIpOptions) {
  Bytes packet = Datagram();
  packet.insert(packet.begin() + 20, {1, 1, 1, 0});
  packet[0] = 0x46;
  packet[3] = 34;
  SumHeader(packet);
  packet[22] = 2;
  EXPECT_FALSE(ParseUdp(packet.data(), packet.size(), true));
}

TEST(ParseUdpTest, TakesAnAbsentChecksum) {
  Bytes packet = Datagram();
  packet[26] = packet[27] = 0;
  EXPECT_TRUE(ParseUdp(packet.data(), packet.size(), true));
}

TEST(ParseUdpTest, RefusesBrokenHeaders) {
  struct Break {
    const char* what;
    std::size_t at;
    std::uint8_t value;
  };
  for (const Break& broken :
       {Break{"version", 0, 0x65}, Break{"short header", 0, 0x44},
        Break{"header beyond the packet", 0, 0x4F}, Break{"total beyond the packet", 3, 31},
        Break{"total too small", 3, 27}, Break{"protocol", 9, 6}, Break{"more fragments", 6, 0x20},
        Break{"fragment offset", 7, 1}, Break{"port", 23, 68}, Break{"UDP too short", 25, 7},
        Break{"UDP beyond the packet", 25, 11}}) {
    Bytes packet = Datagram();
    packet[broken.at] = broken.value;
    SumHeader(packet);
    EXPECT_FALSE(ParseUdp(packet.data(), packet.size(), false)) << broken.what;
  }
}

TEST(ParseUdpTest, RefusesEveryCut) {
  const Bytes whole = Datagram();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Bytes packet(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(ParseUdp(packet.data(), packet.size(), false)) << size;
  }
}

TEST(WriteHeadersTest, AddressesAndSumsAreRight) {
  for (const std::size_t size : {0U, 1U, 2U, 3U, 300U, 301U, 1472U}) {
    Bytes packet(kHeadersSize + size);
    for (std::size_t i = 0; i < size; ++i)
      packet[kHeadersSize + i] = static_cast<std::uint8_t>(7 * i + 1);
    dhcp_manager::WriteHeaders(Ip("192.0.2.1"), Ip("192.0.2.7"), packet.data() + kHeadersSize,
                               size);
    EXPECT_EQ(packet[0], 0x45);
    EXPECT_EQ(packet[2] << 8U | packet[3], static_cast<int>(28 + size));
    EXPECT_EQ(packet[8], 64);
    EXPECT_EQ(packet[9], 17);
    EXPECT_EQ(Bytes(packet.begin() + 12, packet.begin() + 24),
              (Bytes{192, 0, 2, 1, 192, 0, 2, 7, 0, 67, 0, 68}));
    EXPECT_EQ(packet[24] << 8U | packet[25], static_cast<int>(8 + size));
    EXPECT_EQ(Sum(packet.data(), 20), 0xFFFF);
    const auto pseudo = static_cast<std::uint32_t>(Sum(packet.data() + 12, 8)) + 17U + 8U +
                        static_cast<std::uint32_t>(size);
    EXPECT_NE(packet[26] << 8U | packet[27], 0);
    EXPECT_EQ(Sum(packet.data() + 20, 8 + size, pseudo), 0xFFFF) << size;
  }
}

TEST(WriteHeadersTest, ASumOfZeroIsSentAsAllOnes) {
  // The payload makes the sum of everything else 0xFFFF.
  Bytes packet(kHeadersSize + 2);
  dhcp_manager::WriteHeaders(Ip("192.0.2.1"), Ip("192.0.2.7"), packet.data() + kHeadersSize, 2);
  packet[28] = packet[26];
  packet[29] = packet[27];
  dhcp_manager::WriteHeaders(Ip("192.0.2.1"), Ip("192.0.2.7"), packet.data() + kHeadersSize, 2);
  EXPECT_EQ(packet[26], 0xFF);
  EXPECT_EQ(packet[27], 0xFF);
}

}  // namespace
