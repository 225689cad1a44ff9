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
#include "protocol/control/outcome.h"
#include "protocol/wire/policy.h"

namespace dhcp_manager {

// A BOOTP message: the payload of the UDP datagram, with room to grow up to `capacity` bytes.
struct MessageBuffer {
  std::uint8_t* data;
  std::size_t size;
  std::size_t capacity;
};

// What the packet rules need of the relay interface of a message.
struct RelayParameters {
  nettypes::IPv4Addr giaddr;
  bool check = false;
  bool trusted = false;
  bool drop_foreign_giaddr = false;  // unless trusted
  bool option = false;
  dhcp_relay::wire::Policy policy = dhcp_relay::wire::Policy::kKeep;
  // Our option 82 without its code and length, 255 bytes at most.
  std::vector<std::uint8_t> relay_agent_information;
};

// Addresses by their numeric value (IPv4Addr::host_order).
using AddressSet = std::unordered_set<std::uint32_t>;

// The value of our option 82 (RFC 3046, section 2.0): circuit-id (section 3.1) the text
// "NAME:VLAN", or "NAME" without a VLAN; remote-id (section 3.2) the six bytes of the MAC address.
// `name` is cut where the value would exceed an option's 255 bytes.
std::vector<std::uint8_t> MakeRelayAgentInformation(std::string_view name,
                                                    std::optional<std::uint16_t> vlan,
                                                    const base::MacAddress& mac);

struct RequestVerdict {
  dhcp_relay::control::RequestOutcome outcome;  // kRelayed: to be sent to every server
  bool option_left_out = false;                 // relayed without our option 82, for want of room
};

// Changes a BOOTREQUEST of a client, or of a relay nearer to it, into the message for the servers.
// `own_addresses` are those of this device in the interface's VRF. A message that is not relayed is
// left in an unspecified state.
RequestVerdict RelayRequest(const RelayParameters& interface, const AddressSet& own_addresses,
                            MessageBuffer& message);

// giaddr of a message of at least 28 bytes; nothing for a shorter one.
std::optional<nettypes::IPv4Addr> GiaddrOf(const std::uint8_t* data, std::size_t size);

// Changes a BOOTREPLY of a server whose giaddr is that of `interface` into the message for the
// client. kRelayed: to be sent out of the interface.
dhcp_relay::control::ReplyOutcome RelayReply(const RelayParameters& interface,
                                             MessageBuffer& message);

// Where a relayed reply goes at layers 2 and 3.
struct ReplyTarget {
  nettypes::IPv4Addr address;  // yiaddr, or 255.255.255.255
  base::MacAddress mac;        // chaddr, or all ones
};

// REQUIRES: RelayReply has returned kRelayed for `message`.
ReplyTarget TargetOf(const MessageBuffer& message);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_PACKET_RELAY_PACKET_H_
