// DHCP messages and sockets that the programs of the relay benchmark share.

#ifndef BENCH_RELAY_FRAMES_H_
#define BENCH_RELAY_FRAMES_H_

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>
#include <vector>

namespace bench {

inline constexpr std::size_t kBatch = 64;
inline constexpr std::size_t kSize = 2048;
inline constexpr std::size_t kEthernet = 14;
inline constexpr std::size_t kHeaders = 28;  // IPv4 and UDP

// Where the messages of these programs have their DHCP message type, and its values.
inline constexpr std::size_t kType = 242;
inline constexpr std::uint8_t kDiscover = 1;
inline constexpr std::uint8_t kOffer = 2;
inline constexpr std::uint8_t kDhcpRequest = 3;
inline constexpr std::uint8_t kAck = 5;

inline volatile std::sig_atomic_t ended = 0;

inline void EndOnSignal() {
  struct sigaction action{};
  action.sa_handler = [](int /*signal*/) { ended = 1; };
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

[[noreturn]] inline void Die(const char* what) {
  std::perror(what);
  std::exit(EXIT_FAILURE);
}

inline void Require(bool good, const char* what) {
  if (!good) Die(what);
}

inline constexpr std::uint64_t kSecond = 1'000'000'000;  // in nanoseconds

inline std::uint64_t Nanoseconds(const timespec& time) {
  return static_cast<std::uint64_t>(time.tv_sec) * kSecond +
         static_cast<std::uint64_t>(time.tv_nsec);
}

inline std::uint64_t Now(clockid_t clock = CLOCK_MONOTONIC) {
  timespec time{};
  clock_gettime(clock, &time);
  return Nanoseconds(time);
}

inline void EnlargeBuffers(int fd) {
  constexpr int kBuffer = 16 * 1024 * 1024;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kBuffer, sizeof(kBuffer));
  setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &kBuffer, sizeof(kBuffer));
}

// Lets pass UDP to `port` whose message has the operation `op`. `ethernet` is the size of the
// header before the IPv4 header, which has no options here.
inline void FilterPackets(int fd, std::uint32_t ethernet, std::uint32_t port, std::uint32_t op) {
  const auto load = [](unsigned size, std::uint32_t offset) {
    return sock_filter{static_cast<std::uint16_t>(BPF_LD | size | BPF_ABS), 0, 0, offset};
  };
  const auto equal = [](std::uint32_t value, std::uint8_t otherwise) {
    return sock_filter{BPF_JMP | BPF_JEQ | BPF_K, 0, otherwise, value};
  };
  std::array code{load(BPF_B, ethernet + 9),
                  equal(IPPROTO_UDP, 5),
                  load(BPF_H, ethernet + 22),
                  equal(port, 3),
                  load(BPF_B, ethernet + kHeaders),
                  equal(op, 1),
                  sock_filter{BPF_RET | BPF_K, 0, 0, 0x40000},
                  sock_filter{BPF_RET | BPF_K, 0, 0, 0}};
  const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
  Require(setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)) == 0, "filter");
}

// A packet socket of `device`, bound when its filter stands.
inline int OpenPacketSocket(const char* device, int type, std::uint32_t port, std::uint32_t op) {
  const int fd = socket(AF_PACKET, type | SOCK_NONBLOCK, 0);
  Require(fd >= 0, "packet socket");
  FilterPackets(fd, type == SOCK_RAW ? kEthernet : 0, port, op);
  EnlargeBuffers(fd);
  constexpr int kOn = 1;
  setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &kOn, sizeof(kOn));
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  address.sll_ifindex = static_cast<int>(if_nametoindex(device));
  Require(address.sll_ifindex != 0, device);
  Require(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0, "bind");
  return fd;
}

// UDP port 67 that takes messages of the operation `op` alone.
inline int OpenUdpSocket(std::uint32_t op) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  Require(fd >= 0, "UDP socket");
  std::array code{sock_filter{BPF_LD | BPF_B | BPF_ABS, 0, 0, 8},
                  sock_filter{BPF_JMP | BPF_JEQ | BPF_K, 0, 1, op},
                  sock_filter{BPF_RET | BPF_K, 0, 0, 0x40000},
                  sock_filter{BPF_RET | BPF_K, 0, 0, 0}};
  const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
  Require(setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)) == 0, "filter");
  EnlargeBuffers(fd);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(67);
  Require(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0, "bind to port 67");
  return fd;
}

inline std::uint16_t Checksum(const std::uint8_t* data, std::size_t size) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    sum += static_cast<std::uint32_t>(data[i] << 8U) | data[i + 1];
  }
  while ((sum >> 16U) != 0) sum = (sum & 0xFFFFU) + (sum >> 16U);
  return htons(static_cast<std::uint16_t>(~sum));
}

// IPv4 and UDP headers for a payload of `size` bytes, without a UDP checksum.
inline void WriteHeaders(std::uint8_t* at, std::size_t size, in_addr_t from, in_addr_t to,
                         std::uint16_t from_port, std::uint16_t to_port) {
  const auto put = [at](std::size_t offset, std::size_t value) {
    at[offset] = static_cast<std::uint8_t>(value >> 8U);
    at[offset + 1] = static_cast<std::uint8_t>(value);
  };
  std::memset(at, 0, kHeaders);
  at[0] = 0x45;
  put(2, kHeaders + size);
  at[8] = 64;
  at[9] = IPPROTO_UDP;
  std::memcpy(at + 12, &from, sizeof(from));
  std::memcpy(at + 16, &to, sizeof(to));
  const std::uint16_t sum = Checksum(at, 20);
  std::memcpy(at + 10, &sum, sizeof(sum));
  put(20, from_port);
  put(22, to_port);
  put(24, 8 + size);
}

// Buffers and headers for a batch, each with room before its bytes.
struct Batch {
  static constexpr std::size_t kRoom = 64;
  std::array<std::array<std::uint8_t, kRoom + kSize>, kBatch> bytes{};
  std::array<sockaddr_storage, kBatch> names{};
  std::array<iovec, kBatch> vectors{};
  std::array<mmsghdr, kBatch> headers{};

  // `controls` is divided among the messages, as room for their control messages.
  int Receive(int fd, std::span<std::uint8_t> controls = {}) {
    const std::size_t control_size = controls.size() / kBatch;
    for (std::size_t i = 0; i < kBatch; ++i) {
      vectors[i] = {bytes[i].data() + kRoom, kSize};
      headers[i].msg_hdr = {};
      headers[i].msg_hdr.msg_name = &names[i];
      headers[i].msg_hdr.msg_namelen = sizeof(names[i]);
      headers[i].msg_hdr.msg_iov = &vectors[i];
      headers[i].msg_hdr.msg_iovlen = 1;
      headers[i].msg_hdr.msg_control = controls.data() + i * control_size;
      headers[i].msg_hdr.msg_controllen = control_size;
    }
    return recvmmsg(fd, headers.data(), kBatch, MSG_DONTWAIT, nullptr);
  }

  // Sends the first `count` as they are set up.
  void Send(int fd, int count) {
    int sent = 0;
    while (sent < count) {
      const int result =
          sendmmsg(fd, headers.data() + sent, static_cast<unsigned>(count - sent), 0);
      sent += result > 0 ? result : 1;
    }
  }
};

}  // namespace bench

#endif  // BENCH_RELAY_FRAMES_H_
