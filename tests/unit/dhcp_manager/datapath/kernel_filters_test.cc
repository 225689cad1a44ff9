// The eBPF programs over sample packets, on an evaluator of our own: no privileges. That the kernel
// takes them, and does the same, is for tests/e2e/kernel_drops_test.py.

#include "dhcp_manager/datapath/kernel_filters.h"

#include <gtest/gtest.h>
#include <linux/if_packet.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "dhcp_manager/datapath/ebpf.h"
#include "tests/unit/dhcp_manager/datapath/datapath_fixture.h"

namespace {

using dhcp_manager::FilterMemory;
using dhcp_manager::FilterTable;
using tests::Bytes;

constexpr int kLink = 2;
constexpr int kOtherLink = 3;

// The eBPF machine, as far as the programs use it. Addresses are those of this process.
class Evaluator {
 public:
  Evaluator(const Bytes& packet, const __sk_buff& context, FilterMemory& memory)
      : packet_(packet), memory_(memory) {
    registers_[BPF_REG_1] = std::bit_cast<std::uint64_t>(&context);
  }

  std::uint64_t Run(const std::vector<bpf_insn>& program) {
    for (std::size_t at = 0; at < program.size(); ++at) {
      const bpf_insn& step = program[at];
      if (step.code == (BPF_JMP | BPF_EXIT)) return registers_[BPF_REG_0];
      if (BPF_CLASS(step.code) == BPF_JMP) {
        if (Holds(step)) at += static_cast<std::size_t>(step.off);
      } else if (step.code == dhcp_manager::ebpf::kLoadAddress) {
        // A map's address: the next instruction has the offset.
        EXPECT_EQ(step.src_reg, BPF_PSEUDO_MAP_VALUE);
        registers_.at(step.dst_reg) =
            std::bit_cast<std::uint64_t>(&memory_) + static_cast<std::uint64_t>(program[++at].imm);
      } else if (!Execute(step)) {
        return 0;
      }
    }
    throw std::logic_error("the program has no end");
  }

 private:
  std::uint64_t Operand(const bpf_insn& step) const {
    return BPF_SRC(step.code) == BPF_X ? registers_.at(step.src_reg)
                                       : static_cast<std::uint64_t>(std::int64_t{step.imm});
  }

  bool Holds(const bpf_insn& step) const {
    const std::uint64_t left = registers_.at(step.dst_reg);
    const std::uint64_t right = Operand(step);
    switch (BPF_OP(step.code)) {
      case BPF_JA:
        return true;
      case BPF_JEQ:
        return left == right;
      case BPF_JNE:
        return left != right;
      case BPF_JSET:
        return (left & right) != 0;
      case BPF_JLE:
        return left <= right;
      case BPF_JLT:
        return left < right;
      case BPF_JSGE:
        return static_cast<std::int64_t>(left) >= static_cast<std::int64_t>(right);
      default:
        throw std::logic_error("unknown jump");
    }
  }

  // False when a load from the packet leads beyond it.
  bool Execute(const bpf_insn& step) {
    switch (BPF_CLASS(step.code)) {
      case BPF_LD:
        return LoadPacket(step);
      case BPF_LDX:
        std::memcpy(&registers_.at(step.dst_reg), At(step.src_reg, step.off), Width(step));
        return true;
      case BPF_STX: {
        std::uint64_t number = 0;
        std::memcpy(&number, At(step.dst_reg, step.off), sizeof(number));
        number += registers_.at(step.src_reg);
        std::memcpy(At(step.dst_reg, step.off), &number, sizeof(number));
        return true;
      }
      default:
        Compute(step);
        return true;
    }
  }

  std::uint8_t* At(std::uint8_t base, std::int16_t offset) const {
    return std::bit_cast<std::uint8_t*>(registers_.at(base) + static_cast<std::uint64_t>(offset));
  }

  std::size_t Width(const bpf_insn& step) {
    registers_.at(step.dst_reg) = 0;
    return BPF_SIZE(step.code) == BPF_W ? 4 : 8;
  }

  void Compute(const bpf_insn& step) {
    std::uint64_t& to = registers_.at(step.dst_reg);
    const std::uint64_t by = Operand(step);
    switch (BPF_OP(step.code)) {
      case BPF_MOV:
        to = by;
        break;
      case BPF_ADD:
        to += by;
        break;
      case BPF_SUB:
        to -= by;
        break;
      case BPF_MUL:
        to *= by;
        break;
      case BPF_AND:
        to &= by;
        break;
      case BPF_LSH:
        to <<= by;
        break;
      default:
        throw std::logic_error("unknown operation");
    }
  }

  bool LoadPacket(const bpf_insn& step) {
    const std::size_t size = BPF_SIZE(step.code) == BPF_B ? 1 : 2;
    const std::size_t base = BPF_MODE(step.code) == BPF_IND ? registers_.at(step.src_reg) : 0;
    const std::size_t offset = base + static_cast<std::size_t>(step.imm);
    for (std::uint8_t lost = BPF_REG_1; lost <= BPF_REG_5; ++lost) registers_.at(lost) = ~0ULL;
    if (offset + size > packet_.size()) return false;
    registers_[BPF_REG_0] = packet_[offset];
    if (size == 2) registers_[BPF_REG_0] = registers_[BPF_REG_0] << 8U | packet_[offset + 1];
    return true;
  }

  const Bytes& packet_;
  FilterMemory& memory_;
  std::array<std::uint64_t, 11> registers_{};
};

class KernelFiltersTest : public ::testing::Test {
 protected:
  KernelFiltersTest() { table_.SetRoom(1000); }

  bool PassesToClients(const Bytes& packet, int link = kLink, std::uint32_t type = PACKET_HOST) {
    __sk_buff context{};
    context.len = static_cast<std::uint32_t>(packet.size());
    context.pkt_type = type;
    context.ifindex = static_cast<std::uint32_t>(link);
    return Run(dhcp_manager::filter::ClientProgram(0), packet, context);
  }
  bool PassesToServers(const Bytes& datagram) {
    __sk_buff context{};
    context.len = static_cast<std::uint32_t>(datagram.size());
    return Run(dhcp_manager::filter::ServerProgram(0), datagram, context);
  }
  const FilterMemory::Link& Link(int link = kLink) const {
    return memory_->links.at(FilterTable::SlotOf(link));
  }
  // How many of `count` requests of the link pass.
  int Admitted(int link, int count) {
    int admitted = 0;
    for (int i = 0; i < count; ++i) admitted += PassesToClients(tests::BroadcastRequest(), link);
    return admitted;
  }

  std::unique_ptr<FilterMemory> memory_ = std::make_unique<FilterMemory>();
  FilterTable table_{*memory_};

 private:
  bool Run(const std::vector<bpf_insn>& program, const Bytes& packet, const __sk_buff& context) {
    const std::uint64_t size = Evaluator(packet, context, *memory_).Run(program);
    EXPECT_TRUE(size == 0 || size >= packet.size()) << "cut";
    return size != 0;
  }
};

TEST_F(KernelFiltersTest, ARequestPassesAndWaits) {
  EXPECT_TRUE(PassesToClients(tests::BroadcastRequest()));
  Bytes options = tests::BroadcastRequest();
  options.insert(options.begin() + 20, {1, 1, 1, 0});
  options[0] = 0x46;
  EXPECT_TRUE(PassesToClients(options));
  EXPECT_EQ(Link().admitted, 2U);
  EXPECT_EQ(memory_->admitted, 2U);
}

TEST_F(KernelFiltersTest, WhatIsNoRequestIsDroppedAndNotCounted) {
  struct Change {
    const char* what;
    std::size_t at;
    std::uint8_t value;
  };
  for (const Change& change :
       {Change{"another protocol", 9, 6}, Change{"a first fragment", 6, 0x20},
        Change{"a later fragment", 7, 1}, Change{"another port", 23, 68},
        Change{"a port whose low byte is 67", 22, 1}, Change{"a reply", 28, 2}}) {
    Bytes packet = tests::BroadcastRequest();
    packet[change.at] = change.value;
    EXPECT_FALSE(PassesToClients(packet)) << change.what;
  }
  EXPECT_FALSE(PassesToClients(tests::BroadcastRequest(), kLink, PACKET_OTHERHOST));
  EXPECT_FALSE(PassesToClients({0x45, 0}));
  EXPECT_EQ(memory_->admitted, 0U);
  EXPECT_EQ(memory_->refused, 0U);
}

TEST_F(KernelFiltersTest, ARequestWithoutAWholeHeaderIsARunt) {
  Bytes message = tests::Request();
  message.resize(236);
  EXPECT_TRUE(PassesToClients(tests::ToServerPort(message, "255.255.255.255")));
  for (const std::size_t size : {235U, 1U, 0U}) {
    message.resize(size);
    EXPECT_FALSE(PassesToClients(tests::ToServerPort(message, "255.255.255.255"))) << size;
  }
  EXPECT_EQ(Link().runts, 3U);
  EXPECT_EQ(Link(kOtherLink).runts, 0U);
  EXPECT_EQ(table_.refused(), 3U);
  // A runt of a server is not counted here.
  EXPECT_FALSE(PassesToClients(tests::ToServerPort({2, 1, 6}, "255.255.255.255")));
  EXPECT_EQ(table_.refused(), 3U);
}

TEST_F(KernelFiltersTest, AFloodLeavesAFifthOfTheRoomToOthers) {
  memory_->capacity = 100;
  EXPECT_EQ(Admitted(kLink, 1000), 80);
  EXPECT_EQ(Link().over_share, 920U);
  // The second gets four fifths of what is left.
  EXPECT_EQ(Admitted(kOtherLink, 1000), 16);
  EXPECT_EQ(Link(kOtherLink).over_share, 984U);
  EXPECT_EQ(Admitted(kOtherLink + 1, 3), 3);
  EXPECT_EQ(table_.refused(), 920U + 984U);
}

TEST_F(KernelFiltersTest, RoomThatIsFreeAgainIsSharedAnew) {
  memory_->capacity = 100;
  EXPECT_EQ(Admitted(kLink, 1000), 80);
  for (int i = 0; i < 80; ++i) table_.Take(kLink);
  table_.Release(80);
  EXPECT_EQ(Admitted(kLink, 1000), 80);
}

TEST_F(KernelFiltersTest, PacketsLostBehindTheFilterDoNotWaitForEver) {
  memory_->capacity = 100;
  EXPECT_EQ(Admitted(kLink, 1000), 80);
  table_.OnEmpty();
  EXPECT_EQ(Admitted(kLink, 1000), 80);
}

TEST_F(KernelFiltersTest, PacketsOnTheirWayToTheRingStillWait) {
  EXPECT_EQ(Admitted(kLink, 2), 2);
  table_.OnEmpty();
  EXPECT_EQ(memory_->taken, 0U);
}

TEST_F(KernelFiltersTest, SomeRoomIsKeptForProcessorsThatAdmitAtOnce) {
  table_.SetRoom(4096);
  EXPECT_LT(memory_->capacity, 4096U);
  EXPECT_GT(memory_->capacity, 3000U);
}

TEST_F(KernelFiltersTest, OnlyRepliesPassToServersAndTheOthersAreCounted) {
  Bytes datagram{0, 67, 0, 67, 0, 12, 0, 0, 2, 1, 6, 0};
  EXPECT_TRUE(PassesToServers(datagram));
  EXPECT_EQ(table_.refused_datagrams(), 0U);
  for (const std::uint8_t op : Bytes{0, 1, 3, 255}) {
    datagram[8] = op;
    EXPECT_FALSE(PassesToServers(datagram)) << int{op};
  }
  EXPECT_FALSE(PassesToServers({0, 67, 0, 67, 0, 8, 0, 0}));
  EXPECT_EQ(table_.refused_datagrams(), 5U);
}

}  // namespace
