#include "dhcp_manager/datapath/ebpf.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "base/system_error.h"

namespace dhcp_manager::ebpf {
namespace {

// The kernel wants to know it; none of the functions that need a certain license is called.
constexpr char kLicense[] = "Proprietary";

std::uint64_t AddressOf(const void* data) { return reinterpret_cast<std::uintptr_t>(data); }

base::Descriptor Call(bpf_cmd command, bpf_attr& attributes, const char* what) {
  const long result = syscall(SYS_bpf, command, &attributes, sizeof(attributes));
  if (result < 0) base::ThrowSystemError(what);
  return base::Descriptor(static_cast<int>(result));
}

}  // namespace

void Assembler::Add(std::uint8_t code, Register to, Register from, std::int16_t offset,
                    std::int32_t value) {
  bpf_insn instruction{};
  instruction.code = code;
  instruction.dst_reg = to & 0xFU;
  instruction.src_reg = from & 0xFU;
  instruction.off = offset;
  instruction.imm = value;
  code_.push_back(instruction);
}

void Assembler::LoadMapAddress(Register to, int map, std::size_t offset) {
  Add(kLoadAddress, to, BPF_PSEUDO_MAP_VALUE, 0, map);
  Add(0, 0, 0, 0, static_cast<std::int32_t>(offset));
}

std::vector<bpf_insn> Assembler::Finish() {
  for (const PendingJump& jump : jumps_) {
    const std::size_t place = places_.at(static_cast<std::size_t>(jump.label));
    code_[jump.at].off = static_cast<std::int16_t>(place - jump.at - 1);
  }
  return code_;
}

base::Descriptor MakeMap(std::size_t size) {
  bpf_attr attributes{};
  attributes.map_type = BPF_MAP_TYPE_ARRAY;
  attributes.key_size = sizeof(std::uint32_t);
  attributes.value_size = static_cast<std::uint32_t>(size);
  attributes.max_entries = 1;
  attributes.map_flags = BPF_F_MMAPABLE;
  return Call(BPF_MAP_CREATE, attributes, "cannot make a map for the kernel's filters");
}

base::Descriptor LoadSocketFilter(std::span<const bpf_insn> program, std::string_view name) {
  bpf_attr attributes{};
  attributes.prog_type = BPF_PROG_TYPE_SOCKET_FILTER;
  attributes.insns = AddressOf(program.data());
  attributes.insn_cnt = static_cast<std::uint32_t>(program.size());
  attributes.license = AddressOf(kLicense);
  std::copy_n(name.begin(), std::min<std::size_t>(name.size(), BPF_OBJ_NAME_LEN - 1),
              attributes.prog_name);
  return Call(BPF_PROG_LOAD, attributes, "cannot load a filter into the kernel");
}

}  // namespace dhcp_manager::ebpf
