// The layout of a BOOTP or DHCP message (RFC 951, RFC 2131 section 2), and a walk through its
// options (RFC 2132).

#ifndef DHCP_MANAGER_PACKET_DHCP_MESSAGE_H_
#define DHCP_MANAGER_PACKET_DHCP_MESSAGE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <nettypes/ipv4_addr.h>

namespace dhcp_manager::message {

inline constexpr std::size_t kOp = 0;
inline constexpr std::size_t kHtype = 1;
inline constexpr std::size_t kHlen = 2;
inline constexpr std::size_t kHops = 3;
inline constexpr std::size_t kFlags = 10;
inline constexpr std::size_t kYiaddr = 16;
inline constexpr std::size_t kGiaddr = 24;
inline constexpr std::size_t kChaddr = 28;
inline constexpr std::size_t kSname = 44;
inline constexpr std::size_t kFile = 108;
inline constexpr std::size_t kVend = 236;
inline constexpr std::size_t kOptions = 240;

inline constexpr std::uint8_t kRequest = 1;
inline constexpr std::uint8_t kReply = 2;
inline constexpr std::uint8_t kEthernet = 1;
inline constexpr std::uint8_t kBroadcastFlag = 0x80;  // in the first byte of flags
inline constexpr std::size_t kChaddrSize = 16;

inline constexpr std::uint8_t kPad = 0;
inline constexpr std::uint8_t kOverload = 52;
inline constexpr std::uint8_t kMessageType = 53;
inline constexpr std::uint8_t kRelayAgentInformation = 82;
inline constexpr std::uint8_t kEnd = 255;

inline constexpr std::uint8_t kDiscover = 1;  // a message type

// Bits of an Overload: fields of the header that hold options (RFC 2132, section 9.3).
inline constexpr std::uint8_t kFileBit = 1;
inline constexpr std::uint8_t kSnameBit = 2;

// Bytes of an option that are not its value: code and length.
inline constexpr std::size_t kOptionHeader = 2;

// Whether the header is complete and valid, for the direction `op`.
inline bool IsMessage(const std::uint8_t* data, std::size_t size, std::uint8_t op) {
  return size >= kVend && data[kOp] == op && data[kHlen] <= kChaddrSize;
}

// The address in the four bytes at `field`.
inline nettypes::IPv4Addr ReadAddress(const std::uint8_t* field) {
  return nettypes::IPv4Addr::from_host_order(
      static_cast<std::uint32_t>(field[0]) << 24U | static_cast<std::uint32_t>(field[1]) << 16U |
      static_cast<std::uint32_t>(field[2]) << 8U | static_cast<std::uint32_t>(field[3]));
}

inline void WriteAddress(nettypes::IPv4Addr address, std::uint8_t* field) {
  const in_addr packed = address.to_in_addr();
  std::memcpy(field, &packed, sizeof(packed));
}

// Whether options follow the header (RFC 2131, section 3); a plain BOOTP message has none.
inline bool HasOptions(const std::uint8_t* data, std::size_t size) {
  constexpr std::uint8_t kCookie[]{99, 130, 83, 99};
  return size >= kOptions && std::memcmp(data + kVend, kCookie, sizeof(kCookie)) == 0;
}

// Where a walk through options ended.
struct OptionsEnd {
  bool whole;            // false: an option reaches beyond the bytes that there are
  bool has_end;          // an End option is there
  std::size_t position;  // of End, else where the bytes end
};

// Calls visit(code, position, length) for each option but Pad and End of data[from, to).
template <typename Visit>
OptionsEnd WalkOptions(const std::uint8_t* data, std::size_t from, std::size_t to, Visit visit) {
  std::size_t position = from;
  while (position < to) {
    const std::uint8_t code = data[position];
    if (code == kPad) {
      ++position;
      continue;
    }
    if (code == kEnd) return {.whole = true, .has_end = true, .position = position};
    if (to - position < kOptionHeader) break;
    const std::size_t length = data[position + 1];
    if (to - position - kOptionHeader < length) break;
    visit(code, position, length);
    position += kOptionHeader + length;
  }
  return {.whole = position == to, .has_end = false, .position = position};
}

// Whether a message with a whole header is a DHCPDISCOVER: a server may read its type in any of the
// fields that hold options.
bool IsDiscover(const std::uint8_t* data, std::size_t size);

// Removes every option 82 from the options in data[from, to) and moves up what follows it. Returns
// the number of bytes freed, which are zeros at the end now. REQUIRES: the options are whole.
std::size_t RemoveRelayAgentInformation(std::uint8_t* data, std::size_t from, std::size_t to);

}  // namespace dhcp_manager::message

#endif  // DHCP_MANAGER_PACKET_DHCP_MESSAGE_H_
