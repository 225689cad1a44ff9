// Offers DHCPDISCOVERs of first-hop clients at a fixed rate, takes the answers, and prints one line
// of JSON. SIGTERM ends the asking before its time. With "exchange" each client requests what it is
// offered, and the answer that counts is the DHCPACK.
//   relay_load DEVICE RATE SECONDS [exchange]

#include <algorithm>

#include "bench/relay/frames.h"

namespace {

using namespace bench;  // NOLINT(google-build-using-namespace): one program's own parts

constexpr std::size_t kMessage = 300;
constexpr std::uint64_t kTick = 500000;  // nanoseconds between bursts
constexpr std::uint64_t kLinger = 1500000000;

// Broadcast from an Ethernet address, with a chaddr made from the number.
std::size_t MakeFrame(std::uint8_t* frame, std::uint8_t type) {
  std::memset(frame, 0, kEthernet + kHeaders + kMessage);
  std::memset(frame, 0xFF, 6);
  const std::array<std::uint8_t, 8> source{2, 0, 0, 0, 1, 1, 8, 0};
  std::copy(source.begin(), source.end(), frame + 6);
  WriteHeaders(frame + kEthernet, kMessage, 0, INADDR_BROADCAST, 68, 67);
  std::uint8_t* const message = frame + kEthernet + kHeaders;
  message[0] = 1;
  message[1] = 1;
  message[2] = 6;
  message[10] = 0x80;  // answers by broadcast
  const std::array<std::uint8_t, 16> options{99, 130, 83, 99, 53, 1,   1, 55,
                                             4,  1,   3,  6,  15, 255, 0, 0};
  std::copy(options.begin(), options.end(), message + 236);
  message[kType] = type;
  return kEthernet + kHeaders + kMessage;
}

void FillWithFrames(Batch& batch, std::uint8_t type) {
  for (std::size_t i = 0; i < kBatch; ++i) {
    const std::size_t size = MakeFrame(batch.bytes[i].data(), type);
    batch.vectors[i] = {batch.bytes[i].data(), size};
    batch.headers[i].msg_hdr.msg_iov = &batch.vectors[i];
    batch.headers[i].msg_hdr.msg_iovlen = 1;
  }
}

void Number(std::uint8_t* frame, std::uint32_t number) {
  std::uint8_t* const message = frame + kEthernet + kHeaders;
  const std::uint32_t xid = htonl(number);
  std::memcpy(message + 4, &xid, sizeof(xid));
  message[28] = 2;
  message[29] = 1;
  std::memcpy(message + 30, &xid, sizeof(xid));
}

struct Load {
  int fd = -1;
  std::vector<std::uint64_t> sent_at;
  std::vector<std::uint64_t> latencies;
  std::vector<bool> offered;  // empty without exchanges
  std::uint32_t sent = 0;
  std::uint32_t offers = 0;
  Batch out;
  Batch requests;
  Batch in;

  void Burst(std::uint32_t upto) {
    while (sent < upto) {
      int count = 0;
      const std::uint64_t now = Now();
      for (; sent < upto && count < static_cast<int>(kBatch); ++count, ++sent) {
        const auto i = static_cast<std::size_t>(count);
        Number(out.bytes[i].data(), sent);
        sent_at[sent] = now;
      }
      out.Send(fd, count);
    }
  }

  // Takes an answer; `requested` is the number of requests for offers that are to be sent.
  void Take(const std::uint8_t* message, std::uint64_t now, int& requested) {
    std::uint32_t xid = 0;
    std::memcpy(&xid, message + 4, sizeof(xid));
    xid = ntohl(xid);
    if (xid >= sent || sent_at[xid] == 0) return;
    if (!offered.empty() && !offered[xid]) {
      offered[xid] = true;
      ++offers;
      Number(requests.bytes[static_cast<std::size_t>(requested++)].data(), xid);
      return;
    }
    if (!offered.empty() && message[kType] != kAck) return;
    latencies.push_back(now - sent_at[xid]);
    sent_at[xid] = 0;
  }

  void Collect() {
    while (true) {
      const int count = in.Receive(fd);
      if (count <= 0) return;
      const std::uint64_t now = Now();
      int requested = 0;
      for (int i = 0; i < count; ++i) {
        const std::uint8_t* const frame = in.bytes[static_cast<std::size_t>(i)].data();
        Take(frame + Batch::kRoom + kEthernet + kHeaders, now, requested);
      }
      if (requested > 0) requests.Send(fd, requested);
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  const bool exchange = argc == 5 && std::strcmp(argv[4], "exchange") == 0;
  if (argc != 4 && !exchange) {
    std::fputs("usage: relay_load DEVICE RATE SECONDS [exchange]\n", stderr);
    return 2;
  }
  const std::uint64_t rate = std::strtoull(argv[2], nullptr, 10);
  const double seconds = std::strtod(argv[3], nullptr);
  static Load load;
  load.fd = OpenPacketSocket(argv[1], SOCK_RAW, 68, 2);
  const auto total = static_cast<std::uint32_t>(static_cast<double>(rate) * seconds);
  load.sent_at.resize(total);
  load.latencies.reserve(total);
  if (exchange) load.offered.resize(total);
  FillWithFrames(load.out, kDiscover);
  FillWithFrames(load.requests, kDhcpRequest);
  EndOnSignal();
  const std::uint64_t start = Now();
  while (load.sent < total) {
    // What is due at the end is sent, too, so that the rate is kept by a process that had to wait.
    const bool last = ended != 0;
    const std::uint64_t passed = Now() - start;
    load.Burst(
        static_cast<std::uint32_t>(std::min<std::uint64_t>(total, passed * rate / 1000000000U)));
    load.Collect();
    if (last) break;
    const std::uint64_t next = start + (passed / kTick + 1) * kTick;
    const timespec until{static_cast<time_t>(next / 1000000000U),
                         static_cast<long>(next % 1000000000U)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
  }
  const std::uint64_t end = Now();
  while (load.latencies.size() < load.sent && Now() - end < kLinger) {
    load.Collect();
    usleep(500);
  }
  std::ranges::sort(load.latencies);
  const std::size_t answered = load.latencies.size();
  const auto quantile = [&](double share) {
    return answered == 0 ? 0.0
                         : static_cast<double>(load.latencies[static_cast<std::size_t>(
                               share * static_cast<double>(answered - 1))]) /
                               1000;
  };
  std::printf(
      "{\"sent\":%u,\"offers\":%u,\"answered\":%zu,\"seconds\":%.3f,\"median_us\":%.1f,"
      "\"p99_us\":%.1f}\n",
      load.sent, load.offers, answered, static_cast<double>(end - start) / 1e9, quantile(0.5),
      quantile(0.99));
  return 0;
}
