// The kernel's filters over sample packets: each sample runs through an evaluator of our own and
// through the kernel's, on a pair of Unix sockets. Only the evaluator can make a packet of another
// station.

#include "dhcp_manager/datapath/filters.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Program = std::span<const sock_filter>;
namespace filter = dhcp_manager::filter;

// The classic BPF machine, as far as the programs use it. A load beyond the packet drops it.
class Evaluator {
 public:
  Evaluator(const Bytes& packet, std::uint32_t packet_type)
      : packet_(packet), packet_type_(packet_type) {}

  std::uint32_t Run(Program program) {
    for (std::size_t at = 0; at < program.size(); ++at) {
      const sock_filter& step = program[at];
      if (BPF_CLASS(step.code) == BPF_RET) return step.k;
      if (BPF_CLASS(step.code) == BPF_JMP) {
        at += Holds(step) ? step.jt : step.jf;
      } else if (!Load(step)) {
        return 0;
      }
    }
    throw std::logic_error("the program has no end");
  }

 private:
  bool Holds(const sock_filter& step) const {
    if (BPF_OP(step.code) == BPF_JEQ) return accumulator_ == step.k;
    if (BPF_OP(step.code) == BPF_JSET) return (accumulator_ & step.k) != 0;
    throw std::logic_error("unknown jump");
  }

  bool Load(const sock_filter& step) {
    if (step.code == (BPF_LD | BPF_W | BPF_ABS) && step.k == filter::kPacketType) {
      accumulator_ = packet_type_;
      return true;
    }
    const bool indirect = BPF_MODE(step.code) == BPF_IND;
    const std::size_t size = BPF_SIZE(step.code) == BPF_B ? 1 : 2;
    const std::size_t offset = step.k + (indirect ? index_ : 0);
    if (offset + size > packet_.size()) return false;
    if (step.code == (BPF_LDX | BPF_B | BPF_MSH)) {
      index_ = (packet_[offset] & 0xFU) * 4;
      return true;
    }
    accumulator_ = packet_[offset];
    if (size == 2) accumulator_ = accumulator_ << 8U | packet_[offset + 1];
    return true;
  }

  const Bytes& packet_;
  const std::uint32_t packet_type_;
  std::uint32_t accumulator_ = 0;
  std::uint32_t index_ = 0;
};

// Whether a packet passes a socket with the program in front of it.
bool PassesKernel(Program program, const Bytes& packet) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
    throw std::runtime_error("no socket pair");
  }
  const base::Descriptor sender(ends[0]);
  const base::Descriptor receiver(ends[1]);
  const sock_fprog attached{.len = static_cast<unsigned short>(program.size()),
                            .filter = const_cast<sock_filter*>(program.data())};
  EXPECT_EQ(setsockopt(receiver.get(), SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof(attached)),
            0);
  // The kernel reports a dropped datagram to the sender, or does not: only the receiver counts.
  static_cast<void>(send(sender.get(), packet.data(), packet.size(), 0));
  Bytes received(packet.size() + 1);
  const ssize_t size = recv(receiver.get(), received.data(), received.size(), 0);
  EXPECT_TRUE(size < 0 || static_cast<std::size_t>(size) == packet.size()) << "cut";
  return size >= 0;
}

bool Passes(Program program, const Bytes& packet) {
  const bool passes = Evaluator(packet, PACKET_HOST).Run(program) >= packet.size();
  EXPECT_EQ(PassesKernel(program, packet), passes) << "evaluator and kernel differ";
  return passes;
}

// IPv4 and UDP to port 67, and the first bytes of a BOOTREQUEST.
Bytes Request() {
  return {0x45, 0,   0,   32,  0, 0,  0x40, 0,  64, 17, 0, 0, 0, 0, 0, 0,
          255,  255, 255, 255, 0, 68, 0,    67, 0,  12, 0, 0, 1, 1, 6, 0};
}

TEST(ClientPacketsTest, ARequestPassesWhole) {
  EXPECT_TRUE(Passes(filter::kClientPackets, Request()));
  Bytes large = Request();
  large.resize(9000);
  EXPECT_TRUE(Passes(filter::kClientPackets, large));
}

TEST(ClientPacketsTest, ARequestBehindIpOptionsPasses) {
  Bytes packet = Request();
  packet.insert(packet.begin() + 20, {1, 1, 1, 0});
  packet[0] = 0x46;
  EXPECT_TRUE(Passes(filter::kClientPackets, packet));
}

TEST(ClientPacketsTest, EverythingElseIsDropped) {
  struct Change {
    const char* what;
    std::size_t at;
    std::uint8_t value;
  };
  for (const Change& change :
       {Change{"another protocol", 9, 6}, Change{"a first fragment", 6, 0x20},
        Change{"a later fragment", 7, 1}, Change{"another port", 23, 68},
        Change{"a port whose low byte is 67", 22, 1}, Change{"a reply", 28, 2},
        Change{"a header length that leads elsewhere", 0, 0x46}}) {
    Bytes packet = Request();
    packet[change.at] = change.value;
    EXPECT_FALSE(Passes(filter::kClientPackets, packet)) << change.what;
  }
}

TEST(ClientPacketsTest, DontFragmentIsNoFragment) {
  Bytes packet = Request();
  packet[6] = 0x40;
  EXPECT_TRUE(Passes(filter::kClientPackets, packet));
}

TEST(ClientPacketsTest, APacketWithoutAMessageIsDropped) {
  const Bytes whole = Request();
  for (std::size_t size = 1; size <= 28; ++size) {
    EXPECT_FALSE(Passes(filter::kClientPackets,
                        {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}))
        << size;
  }
}

TEST(ClientPacketsTest, WhatIsForAnotherStationIsDropped) {
  const Bytes packet = Request();
  for (const std::uint32_t type : {PACKET_HOST, PACKET_BROADCAST, PACKET_MULTICAST}) {
    EXPECT_GE(Evaluator(packet, type).Run(filter::kClientPackets), packet.size()) << type;
  }
  EXPECT_EQ(Evaluator(packet, PACKET_OTHERHOST).Run(filter::kClientPackets), 0U);
}

TEST(ServerDatagramsTest, OnlyRepliesPass) {
  Bytes datagram{0, 67, 0, 67, 0, 12, 0, 0, 2, 1, 6, 0};
  EXPECT_TRUE(Passes(filter::kServerDatagrams, datagram));
  for (const std::uint8_t op : Bytes{0, 1, 3, 255}) {
    datagram[8] = op;
    EXPECT_FALSE(Passes(filter::kServerDatagrams, datagram)) << int{op};
  }
  EXPECT_FALSE(Passes(filter::kServerDatagrams, {0, 67, 0, 67, 0, 8, 0, 0}));
}

}  // namespace
