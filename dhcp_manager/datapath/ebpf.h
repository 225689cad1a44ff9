// Assembles eBPF programs of a few dozen instructions, and hands them to the kernel.

#ifndef DHCP_MANAGER_DATAPATH_EBPF_H_
#define DHCP_MANAGER_DATAPATH_EBPF_H_

#include <linux/bpf.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "base/descriptor.h"

namespace dhcp_manager::ebpf {

using Register = std::uint8_t;  // BPF_REG_0 and so on

// Loads 64 bits from itself and the instruction that follows (BPF_LD | BPF_DW | BPF_IMM).
inline constexpr std::uint8_t kLoadAddress = BPF_DW;

// Instructions in the order of the calls. A jump names a label, which is placed once, further on.
class Assembler {
 public:
  enum class Label : std::uint8_t { kRunt, kOverShare, kCount, kDrop };

  void Move(Register to, Register from) { Add(BPF_ALU64 | BPF_MOV | BPF_X, to, from); }
  void Set(Register to, std::int32_t value) { Add(BPF_ALU64 | BPF_MOV | BPF_K, to, 0, 0, value); }
  // `operation` is BPF_ADD, BPF_SUB and so on.
  void Compute(std::uint8_t operation, Register to, Register by) {
    Add(static_cast<std::uint8_t>(BPF_ALU64 | BPF_X | operation), to, by);
  }
  void ComputeBy(std::uint8_t operation, Register to, std::int32_t value) {
    Add(static_cast<std::uint8_t>(BPF_ALU64 | BPF_K | operation), to, 0, 0, value);
  }
  // `width` is BPF_W or BPF_DW.
  void Load(std::uint8_t width, Register to, Register address, std::size_t offset) {
    Add(static_cast<std::uint8_t>(BPF_LDX | BPF_MEM | width), to, address,
        static_cast<std::int16_t>(offset));
  }
  // The address of a byte in the only value of the map that `map` is the descriptor of.
  void LoadMapAddress(Register to, int map, std::size_t offset);
  // Adds a register to a number of 64 bits in memory, atomically.
  void AddTo(Register address, std::size_t offset, Register amount) {
    Add(BPF_STX | BPF_DW | kAtomic, address, amount, static_cast<std::int16_t>(offset), BPF_ADD);
  }
  // From the packet into BPF_REG_0; a load beyond the packet ends the program, which drops the
  // packet. REQUIRES: BPF_REG_6 holds the context. BPF_REG_1 to BPF_REG_5 are lost.
  void LoadPacket(std::uint8_t width, std::uint32_t offset) {
    Add(static_cast<std::uint8_t>(BPF_LD | BPF_ABS | width), 0, 0, 0,
        static_cast<std::int32_t>(offset));
  }
  void LoadPacketAt(std::uint8_t width, Register base, std::uint32_t offset) {
    Add(static_cast<std::uint8_t>(BPF_LD | BPF_IND | width), 0, base, 0,
        static_cast<std::int32_t>(offset));
  }

  // `test` is BPF_JEQ and so on.
  void JumpIf(std::uint8_t test, Register left, std::int32_t right, Label label) {
    jumps_.push_back({.at = code_.size(), .label = label});
    Add(static_cast<std::uint8_t>(BPF_JMP | BPF_K | test), left, 0, 0, right);
  }
  void JumpIfRegisters(std::uint8_t test, Register left, Register right, Label label) {
    jumps_.push_back({.at = code_.size(), .label = label});
    Add(static_cast<std::uint8_t>(BPF_JMP | BPF_X | test), left, right);
  }
  void Jump(Label label) { JumpIf(BPF_JA, 0, 0, label); }
  void Place(Label label) { places_.at(static_cast<std::size_t>(label)) = code_.size(); }

  // Ends the program: so many bytes of the packet pass, 0 for none.
  void Return(std::int32_t size) {
    Set(BPF_REG_0, size);
    Add(BPF_JMP | BPF_EXIT, 0, 0);
  }

  // The program with its jumps resolved.
  std::vector<bpf_insn> Finish();

 private:
  // BPF_ATOMIC, by the name that older headers know, too.
  static constexpr std::uint8_t kAtomic = 0xC0;

  struct PendingJump {
    std::size_t at;
    Label label;
  };

  void Add(std::uint8_t code, Register to, Register from, std::int16_t offset = 0,
           std::int32_t value = 0);

  std::vector<bpf_insn> code_;
  std::vector<PendingJump> jumps_;
  std::array<std::size_t, 4> places_{};
};

// These throw std::system_error; they need CAP_BPF.
//
// A map of one value of `size` bytes, all zero, which a process may map into its memory.
base::Descriptor MakeMap(std::size_t size);
// A program for sockets.
base::Descriptor LoadSocketFilter(std::span<const bpf_insn> program, std::string_view name);

}  // namespace dhcp_manager::ebpf

#endif  // DHCP_MANAGER_DATAPATH_EBPF_H_
