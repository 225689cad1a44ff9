// A relay of two instances, one of them in a VRF, with scripted sockets: no namespace, no
// privileges.

#ifndef TESTS_UNIT_DHCP_MANAGER_DATAPATH_DATAPATH_FIXTURE_H_
#define TESTS_UNIT_DHCP_MANAGER_DATAPATH_DATAPATH_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <optional>
#include <string>

#include "dhcp_manager/datapath/datapath_table.h"
#include "dhcp_manager/datapath/flood_guards.h"
#include "dhcp_manager/kernel/links.h"
#include "dhcp_manager/table/counters.h"
#include "dhcp_manager/table/forwarding.h"
#include "dhcp_manager/table/relay_table.h"
#include "protocol/wire/wire.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/datapath/scripted_socket.h"

namespace tests {

namespace wire = dhcp_relay::wire;
using dhcp_relay::control::ReplyOutcome;
using dhcp_relay::control::RequestOutcome;
using dhcp_relay::control::UnmatchedOutcome;

inline constexpr int kLink = 2;     // of l3-5 of r1, 192.168.5.1
inline constexpr int kRedLink = 3;  // of l3-6 of red, 192.168.6.1
inline constexpr int kRedVrf = 9;
inline constexpr std::uint32_t kRedTable = 7;
inline const Bytes kClientMac{2, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};

// A message of 300 bytes with an End option behind the cookie; `giaddr` in its place.
inline Bytes Message(std::uint8_t op, const std::string& giaddr) {
  Bytes message(300);
  message[0] = op;
  message[1] = 1;
  message[2] = 6;
  const std::uint32_t address = Ip(giaddr).host_order();
  for (std::size_t i = 0; i < 4; ++i) {
    message[24 + i] = static_cast<std::uint8_t>(address >> (24 - 8 * i));
  }
  std::copy(kClientMac.begin(), kClientMac.end(), message.begin() + 28);
  const Bytes options{99, 130, 83, 99, 255};
  std::copy(options.begin(), options.end(), message.begin() + 236);
  return message;
}

inline Bytes Request(const std::string& giaddr = "0.0.0.0") { return Message(1, giaddr); }
inline Bytes Reply(const std::string& giaddr) { return Message(2, giaddr); }

// Writes the checksum of an IPv4 header without options.
inline void SumHeader(Bytes& packet) {
  packet[10] = packet[11] = 0;
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < 20; i += 2) {
    sum += static_cast<std::uint32_t>(packet[i] << 8U) + packet[i + 1];
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFFU) + (sum >> 16U);
  packet[10] = static_cast<std::uint8_t>(~sum >> 8U);
  packet[11] = static_cast<std::uint8_t>(~sum);
}

// The IPv4 packet of a UDP datagram from port 68 to port 67, without a checksum of UDP.
inline Bytes ToServerPort(const Bytes& payload, const std::string& destination) {
  const auto high = [](std::size_t size) { return static_cast<std::uint8_t>(size >> 8); };
  const auto low = [](std::size_t size) { return static_cast<std::uint8_t>(size); };
  const std::uint32_t to = Ip(destination).host_order();
  const std::size_t size = payload.size();
  Bytes packet{0x45, 0, high(size + 28), low(size + 28), 0, 0, 0x40, 0, 64, 17, 0, 0, 0, 0, 0, 0};
  for (int shift = 24; shift >= 0; shift -= 8) {
    packet.push_back(static_cast<std::uint8_t>(to >> shift));
  }
  SumHeader(packet);
  packet.insert(packet.end(), {0, 68, 0, 67, high(size + 8), low(size + 8), 0, 0});
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

inline Bytes BroadcastRequest(const std::string& giaddr = "0.0.0.0") {
  return ToServerPort(Request(giaddr), "255.255.255.255");
}

// The configuration, and the kernel's links for it.
struct Configuration {
  Configuration() {
    AddInterface("r1", "l3-5", "192.168.5.1");
    AddServer("r1", "10.0.0.1");
    AddInterface("red", "l3-6", "192.168.6.1");
    table.Apply(VrfCall("red", 0x01000000 | kRedTable));
    AddServer("red", "10.0.0.1");
    AddLink(kLink, "vlan5", "192.168.5.1", 0);
    AddLink(kRedLink, "vlan6", "192.168.6.1", kRedVrf);
    links.SetLink({.index = kRedVrf, .name = "red", .up = true, .vrf_table = kRedTable});
  }

  void AddInterface(const std::string& instance, const std::string& name,
                    const std::string& address) {
    table.Apply(
        AddressCall(wire::SET_L3_INTERFACE_ADDRESS, instance, Ip(address).host_order(), name));
  }
  void AddServer(const std::string& instance, const std::string& server) {
    table.Apply(AddressCall(wire::ADD_SERVER, instance, Ip(server).host_order()));
  }
  void RemoveServer(const std::string& instance, const std::string& server) {
    table.Apply(AddressCall(wire::DELETE_SERVER, instance, Ip(server).host_order()));
  }
  void AddLink(int index, const std::string& name, const std::string& address, int master) {
    links.SetLink(
        {.index = index, .name = name, .up = true, .master = master, .vrf_table = std::nullopt});
    links.SetAddress({.link = index, .address = Ip(address), .broadcast = {}});
  }

  dhcp_manager::Forwarding MakeForwarding() const { return {table, links, trust}; }

  dhcp_manager::RelayTable table;
  dhcp_manager::Links links;
  dhcp_manager::Trust trust;
};

class DatapathTest : public ::testing::Test {
 protected:
  // Applies the configuration as it is now.
  void Apply(const dhcp_manager::FloodLimits& flood_limits = {}) {
    counters_.Synchronise(configuration_.table);
    table_.emplace(counters_, flood_limits);
    table_->Apply(configuration_.MakeForwarding());
    table_->Resolve({{dhcp_manager::kDefaultVrf, &servers_}, {kRedVrf, &red_servers_}});
  }

  const dhcp_manager::InterfaceCounters& Interface(const std::string& instance = "r1",
                                                   const std::string& name = "l3-5") {
    return counters_.Interface(instance, name);
  }
  std::uint64_t Count(RequestOutcome outcome) {
    return Interface().request_outcomes[static_cast<std::size_t>(outcome)];
  }
  std::uint64_t Count(ReplyOutcome outcome) {
    return Interface().reply_outcomes[static_cast<std::size_t>(outcome)];
  }
  std::uint64_t Count(UnmatchedOutcome outcome) {
    return counters_.unmatched().outcomes[static_cast<std::size_t>(outcome)];
  }
  const dhcp_manager::ServerCounters& Server(const std::string& server) {
    return counters_.Server("r1", Ip(server));
  }
  // Every message is counted once as received and once by its outcome.
  void ExpectCountersAddUp() {
    for (const auto& [instance, counters] : counters_.instances()) {
      for (const auto& [name, interface] : counters.interfaces) {
        EXPECT_EQ(interface.requests, Sum(interface.request_outcomes)) << instance << ' ' << name;
        EXPECT_EQ(interface.replies, Sum(interface.reply_outcomes)) << instance << ' ' << name;
      }
    }
    EXPECT_EQ(counters_.unmatched().received, Sum(counters_.unmatched().outcomes));
  }

  Configuration configuration_;
  dhcp_manager::Counters counters_;
  ScriptedSocket server_socket_;
  ScriptedSocket red_server_socket_;
  dhcp_manager::Outbox servers_{server_socket_};
  dhcp_manager::Outbox red_servers_{red_server_socket_};
  std::optional<dhcp_manager::DatapathTable> table_;

 private:
  template <typename Counts>
  static std::uint64_t Sum(const Counts& counts) {
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
  }
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_DATAPATH_DATAPATH_FIXTURE_H_
