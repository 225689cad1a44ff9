#include "dhcp_manager/datapath/kernel_filters.h"

#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <bit>
#include <cstddef>

#include "base/system_error.h"
#include "dhcp_manager/datapath/ebpf.h"
#include "dhcp_manager/datapath/filters.h"
#include "dhcp_manager/datapath/headers.h"
#include "dhcp_manager/packet/dhcp_message.h"

namespace dhcp_manager {
namespace {

using ebpf::Assembler;
using Label = ebpf::Assembler::Label;

constexpr std::int32_t kUdpSize = 8;
constexpr std::int32_t kMinDatagram = kUdpSize + static_cast<std::int32_t>(message::kVend);

// What the registers that survive loads from the packet hold.
constexpr ebpf::Register kContext = BPF_REG_6;
constexpr ebpf::Register kIpHeaderSize = BPF_REG_7;
constexpr ebpf::Register kLink = BPF_REG_8;
constexpr ebpf::Register kDatagramSize = BPF_REG_9;
constexpr ebpf::Register kTable = BPF_REG_0;

// An instruction has 16 bits for the offset of a number.
static_assert(offsetof(FilterMemory, taken) < 32768);
static_assert(std::has_single_bit(FilterMemory::kLinks));
static_assert(std::has_single_bit(FilterMemory::kShare));

// Goes on for UDP to port 67 that is no fragment and not for another station.
void SelectDatagrams(Assembler& code) {
  code.LoadPacket(BPF_B, filter::kProtocolOffset);
  code.JumpIf(BPF_JNE, BPF_REG_0, IPPROTO_UDP, Label::kDrop);
  code.LoadPacket(BPF_H, filter::kFragmentOffset);
  code.JumpIf(BPF_JSET, BPF_REG_0, filter::kFragmentBits, Label::kDrop);
  code.LoadPacket(BPF_B, 0);
  code.ComputeBy(BPF_AND, BPF_REG_0, 0xF);
  code.ComputeBy(BPF_LSH, BPF_REG_0, 2);
  code.Move(kIpHeaderSize, BPF_REG_0);
  code.LoadPacketAt(BPF_H, kIpHeaderSize, filter::kPortOffset);
  code.JumpIf(BPF_JNE, BPF_REG_0, kServerPort, Label::kDrop);
  code.Load(BPF_W, BPF_REG_1, kContext, offsetof(__sk_buff, pkt_type));
  code.JumpIf(BPF_JEQ, BPF_REG_1, PACKET_OTHERHOST, Label::kDrop);
}

void FindLink(Assembler& code, int map) {
  code.Load(BPF_W, kLink, kContext, offsetof(__sk_buff, ifindex));
  code.ComputeBy(BPF_AND, kLink, FilterMemory::kLinks - 1);
  code.ComputeBy(BPF_MUL, kLink, sizeof(FilterMemory::Link));
  code.LoadMapAddress(BPF_REG_1, map, offsetof(FilterMemory, links));
  code.Compute(BPF_ADD, kLink, BPF_REG_1);
}

// A datagram without a message may be a request or a reply; those on UDP sockets do not count it.
void RefuseRunts(Assembler& code) {
  code.Load(BPF_W, kDatagramSize, kContext, offsetof(__sk_buff, len));
  code.Compute(BPF_SUB, kDatagramSize, kIpHeaderSize);
  code.JumpIf(BPF_JLE, kDatagramSize, kUdpSize, Label::kRunt);
  code.LoadPacketAt(BPF_B, kIpHeaderSize, filter::kOperationOffset);
  code.JumpIf(BPF_JNE, BPF_REG_0, message::kRequest, Label::kDrop);
  code.JumpIf(BPF_JLT, kDatagramSize, kMinDatagram, Label::kRunt);
}

// waiting packets of the interface < kShare * (capacity - waiting packets)
void RefuseOverShare(Assembler& code, int map) {
  code.LoadMapAddress(kTable, map, 0);
  code.Load(BPF_DW, BPF_REG_1, kTable, offsetof(FilterMemory, capacity));
  code.Load(BPF_DW, BPF_REG_2, kTable, offsetof(FilterMemory, admitted));
  code.Compute(BPF_SUB, BPF_REG_1, BPF_REG_2);
  code.Load(BPF_DW, BPF_REG_2, kTable, offsetof(FilterMemory, taken));
  code.Compute(BPF_ADD, BPF_REG_1, BPF_REG_2);
  code.ComputeBy(BPF_LSH, BPF_REG_1, std::countr_zero(FilterMemory::kShare));
  code.Load(BPF_DW, BPF_REG_2, kLink, offsetof(FilterMemory::Link, admitted));
  code.Load(BPF_DW, BPF_REG_3, kLink, offsetof(FilterMemory::Link, taken));
  code.Compute(BPF_SUB, BPF_REG_2, BPF_REG_3);
  code.JumpIfRegisters(BPF_JSGE, BPF_REG_2, BPF_REG_1, Label::kOverShare);
}

void Admit(Assembler& code) {
  code.Set(BPF_REG_1, 1);
  code.AddTo(kTable, offsetof(FilterMemory, admitted), BPF_REG_1);
  code.AddTo(kLink, offsetof(FilterMemory::Link, admitted), BPF_REG_1);
  code.Return(filter::kWholePacket);
}

void CountRefused(Assembler& code, int map) {
  code.Place(Label::kOverShare);
  code.Set(BPF_REG_1, 1);
  code.AddTo(kLink, offsetof(FilterMemory::Link, over_share), BPF_REG_1);
  code.Jump(Label::kCount);
  code.Place(Label::kRunt);
  code.Set(BPF_REG_1, 1);
  code.AddTo(kLink, offsetof(FilterMemory::Link, runts), BPF_REG_1);
  code.Place(Label::kCount);
  code.LoadMapAddress(kTable, map, 0);
  code.AddTo(kTable, offsetof(FilterMemory, refused), BPF_REG_1);
}

FilterMemory* MapMemory(int map) {
  void* const memory =
      mmap(nullptr, sizeof(FilterMemory), PROT_READ | PROT_WRITE, MAP_SHARED, map, 0);
  if (memory == MAP_FAILED) base::ThrowSystemError("cannot map the memory of the kernel's filters");
  return static_cast<FilterMemory*>(memory);
}

void Attach(int socket, const base::Descriptor& program) {
  const int descriptor = program.get();
  if (setsockopt(socket, SOL_SOCKET, SO_ATTACH_BPF, &descriptor, sizeof(descriptor)) != 0) {
    base::ThrowSystemError("cannot filter a socket");
  }
}

}  // namespace

std::vector<bpf_insn> filter::ClientProgram(int map) {
  Assembler code;
  code.Move(kContext, BPF_REG_1);
  SelectDatagrams(code);
  FindLink(code, map);
  RefuseRunts(code);
  RefuseOverShare(code, map);
  Admit(code);
  CountRefused(code, map);
  code.Place(Label::kDrop);
  code.Return(0);
  return code.Finish();
}

std::vector<bpf_insn> filter::ServerProgram(int map) {
  Assembler code;
  code.Move(kContext, BPF_REG_1);
  code.Load(BPF_W, BPF_REG_1, kContext, offsetof(__sk_buff, len));
  code.JumpIf(BPF_JLE, BPF_REG_1, kUdpSize, Label::kDrop);
  code.LoadPacket(BPF_B, filter::kOperationOffset);
  code.JumpIf(BPF_JNE, BPF_REG_0, message::kReply, Label::kDrop);
  code.Return(filter::kWholePacket);
  code.Place(Label::kDrop);
  code.LoadMapAddress(kTable, map, 0);
  code.Set(BPF_REG_1, 1);
  code.AddTo(kTable, offsetof(FilterMemory, refused_datagrams), BPF_REG_1);
  code.Return(0);
  return code.Finish();
}

KernelFilters::KernelFilters()
    : map_(ebpf::MakeMap(sizeof(FilterMemory))),
      memory_(MapMemory(map_.get())),
      table_(*memory_),
      clients_(ebpf::LoadSocketFilter(filter::ClientProgram(map_.get()), "clients")),
      servers_(ebpf::LoadSocketFilter(filter::ServerProgram(map_.get()), "servers")) {}

void KernelFilters::AttachToClients(int socket) const { Attach(socket, clients_); }

void KernelFilters::AttachToServers(int socket) const { Attach(socket, servers_); }

void KernelFilters::Unmap::operator()(FilterMemory* memory) const {
  munmap(memory, sizeof(FilterMemory));
}

}  // namespace dhcp_manager
