// What a relay does to one BOOTP or DHCP message (RFC 1542 section 4, RFC 2131, RFC 3046 section
// 2): pure functions from bytes to bytes. They allocate nothing and never read or write outside the
// buffer, whatever it holds.

#ifndef DHCP_MANAGER_PACKET_RELAY_PACKET_H_
#define DHCP_MANAGER_PACKET_RELAY_PACKET_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <nettypes/ipv4_addr.h>

#include "base/mac_address.h"
#include "protocol/wire/policy.h"

namespace dhcp_manager {

// A BOOTP message: the payload of the UDP datagram, with room to grow up to `capacity` bytes.
struct MessageBuffer {
  std::uint8_t* data;
  std::size_t size;
  std::size_t capacity;
};

// What the relay must know of the client-facing interface of a message.
struct RelayParameters {
  nettypes::IPv4Addr giaddr;
  bool check = false;
  bool trusted = false;
  bool option = false;
  dhcp_relay::wire::Policy policy = dhcp_relay::wire::Policy::kKeep;
  std::vector<std::uint8_t> information;  // our option 82 without its code and length
};

// Our relay agent information (RFC 3046, section 2.0): circuit-id (1) the text "NAME:VLAN", or
// "NAME" without a VLAN; remote-id (2) the six bytes of the MAC address. `name` is cut where the
// whole would not fit into an option.
std::vector<std::uint8_t> MakeRelayAgentInformation(std::string_view name,
                                                    std::optional<std::uint16_t> vlan,
                                                    const base::MacAddress& mac);

enum class RequestResult {
  kRelay,        // to be sent to every server
  kRelayNoRoom,  // the same, but our option did not fit and was left out
  kMalformed,
  kHops,        // hops over 16 (RFC 1542, section 4.1.1)
  kOwnGiaddr,   // giaddr is an address of this device: it has been here before, or is forged
  kUntrusted,   // giaddr 0 with option 82 on an untrusted interface (RFC 3046, section 2.1)
  kPolicyDrop,  // option 82 is there already, and the policy says drop
};

// Changes a BOOTREQUEST of a client, or of a relay nearer to it, into what goes to the servers.
// `own_addresses` holds the addresses of this device (in_addr::s_addr, network byte order). What is
// dropped is left in an unspecified state.
RequestResult RelayRequest(const RelayParameters& port,
                           const std::unordered_set<std::uint32_t>& own_addresses,
                           MessageBuffer& message);

enum class ReplyResult {
  kRelay,  // to be sent out of the port
  kMalformed,
  kNoInformation,       // checked, and our option 82 is missing
  kForeignInformation,  // checked, and option 82 is not ours
};

// giaddr of a message of at least 28 bytes, network byte order; nothing for a shorter one.
std::optional<nettypes::IPv4Addr> GiaddrOf(const std::uint8_t* data, std::size_t size);

// Changes a BOOTREPLY of a server whose giaddr is `port`'s into what goes to the client.
ReplyResult RelayReply(const RelayParameters& port, MessageBuffer& message);

// Where a relayed reply goes at layers 2 and 3 (RFC 1542, section 4.1.2).
struct ReplyTarget {
  nettypes::IPv4Addr address;  // yiaddr, or 255.255.255.255
  base::MacAddress mac;        // chaddr, or all ones
};

// Broadcast when the client asked for it (flag B), when there is no yiaddr, or when chaddr is not
// an Ethernet address; else yiaddr and chaddr. `message` has passed RelayReply.
ReplyTarget TargetOf(const MessageBuffer& message);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_PACKET_RELAY_PACKET_H_
