// The kernel's filters in front of the relay's sockets, as classic BPF programs. A program returns
// the number of bytes that pass: the whole packet, or 0 to drop it.

#ifndef DHCP_MANAGER_DATAPATH_FILTERS_H_
#define DHCP_MANAGER_DATAPATH_FILTERS_H_

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <netinet/in.h>

#include <array>
#include <cstdint>

#include "dhcp_manager/datapath/headers.h"
#include "dhcp_manager/packet/dhcp_message.h"

namespace dhcp_manager::filter {

inline constexpr std::uint32_t kWholePacket = 0x40000;

// Offsets into the IPv4 header.
inline constexpr std::uint32_t kFragmentOffset = 6;
inline constexpr std::uint32_t kProtocolOffset = 9;
// Offsets into the UDP header; the message's op follows it.
inline constexpr std::uint32_t kPortOffset = 2;
inline constexpr std::uint32_t kOperationOffset = 8;

inline constexpr std::uint32_t kFragmentBits = 0x3FFF;  // offset and More Fragments
inline constexpr auto kPacketType = static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE);

constexpr sock_filter Load(std::uint16_t size_and_mode, std::uint32_t offset) {
  return {
      .code = static_cast<std::uint16_t>(BPF_LD | size_and_mode), .jt = 0, .jf = 0, .k = offset};
}
constexpr sock_filter LoadIpHeaderSize() {
  return {.code = BPF_LDX | BPF_B | BPF_MSH, .jt = 0, .jf = 0, .k = 0};
}
// Skips `if_true` or `if_false` instructions.
constexpr sock_filter Jump(std::uint16_t test, std::uint32_t value, std::uint8_t if_true,
                           std::uint8_t if_false) {
  return {.code = static_cast<std::uint16_t>(BPF_JMP | test | BPF_K),
          .jt = if_true,
          .jf = if_false,
          .k = value};
}
constexpr sock_filter Return(std::uint32_t size) {
  return {.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = size};
}

// For IPv4 packets, from the IPv4 header on: UDP to port 67 with a BOOTREQUEST, no fragments,
// nothing addressed to another station.
inline constexpr std::array kClientPackets{
    Load(BPF_B | BPF_ABS, kProtocolOffset),
    Jump(BPF_JEQ, IPPROTO_UDP, 0, 10),
    Load(BPF_H | BPF_ABS, kFragmentOffset),
    Jump(BPF_JSET, kFragmentBits, 8, 0),
    LoadIpHeaderSize(),
    Load(BPF_H | BPF_IND, kPortOffset),
    Jump(BPF_JEQ, kServerPort, 0, 5),
    Load(BPF_B | BPF_IND, kOperationOffset),
    Jump(BPF_JEQ, message::kRequest, 0, 3),
    Load(BPF_W | BPF_ABS, kPacketType),
    Jump(BPF_JEQ, PACKET_OTHERHOST, 1, 0),
    Return(kWholePacket),
    Return(0),
};

// For UDP datagrams, from the UDP header on: those with a BOOTREPLY.
inline constexpr std::array kServerDatagrams{
    Load(BPF_B | BPF_ABS, kOperationOffset),
    Jump(BPF_JEQ, message::kReply, 0, 1),
    Return(kWholePacket),
    Return(0),
};

}  // namespace dhcp_manager::filter

#endif  // DHCP_MANAGER_DATAPATH_FILTERS_H_
