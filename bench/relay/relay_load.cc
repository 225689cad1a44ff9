// Offers DHCPDISCOVERs of first-hop clients at a fixed rate, takes the answers, and prints one line
// of JSON. SIGTERM ends the asking before its time. With "exchange" each client requests what it is
// offered, and the answer that counts is the DHCPACK. With SIZE, messages are cut to so many bytes.
//   relay_load DEVICE RATE SECONDS [exchange|SIZE]
//
// The kernel stamps an answer when it comes, so that what this program spends does not depend on
// when answers come.

#include <sys/prctl.h>

#include <algorithm>

#include "bench/relay/frames.h"

namespace {

using namespace bench;  // NOLINT(google-build-using-namespace): one program's own parts

constexpr std::size_t kMessage = 300;
constexpr std::uint64_t kTick = 100'000;  // nanoseconds: the least time between two bursts
constexpr std::uint64_t kCollectInterval = 1'000'000;
constexpr std::uint64_t kLinger = 1'500'000'000;

// Broadcast from an Ethernet address, with a chaddr made from the number. `size` is the message's,
// at most kMessage.
std::size_t MakeFrame(std::uint8_t* frame, std::uint8_t type, std::size_t size) {
  std::memset(frame, 0, kEthernet + kHeaders + kMessage);
  std::memset(frame, 0xFF, 6);
  const std::array<std::uint8_t, 8> source{2, 0, 0, 0, 1, 1, 8, 0};
  std::copy(source.begin(), source.end(), frame + 6);
  WriteHeaders(frame + kEthernet, size, 0, INADDR_BROADCAST, 68, 67);
  std::uint8_t* const message = frame + kEthernet + kHeaders;
  message[0] = 1;
  message[1] = 1;
  message[2] = 6;
  message[10] = 0x80;  // answers by broadcast
  const std::array<std::uint8_t, 16> options{99, 130, 83, 99, 53, 1,   1, 55,
                                             4,  1,   3,  6,  15, 255, 0, 0};
  std::copy(options.begin(), options.end(), message + 236);
  message[kType] = type;
  return kEthernet + kHeaders + size;
}

void FillWithFrames(Batch& batch, std::uint8_t type, std::size_t message = kMessage) {
  for (std::size_t i = 0; i < kBatch; ++i) {
    const std::size_t size = MakeFrame(batch.bytes[i].data(), type, message);
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

void SleepUntil(std::uint64_t time) {
  const timespec until{static_cast<time_t>(time / kSecond), static_cast<long>(time % kSecond)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

// When the kernel received the message, by CLOCK_REALTIME.
std::uint64_t ReceivedAt(msghdr& header) {
  timespec time{};
  const cmsghdr* const control = CMSG_FIRSTHDR(&header);
  if (control == nullptr || control->cmsg_type != SCM_TIMESTAMPNS) Die("time stamp");
  std::memcpy(&time, CMSG_DATA(control), sizeof(time));
  return Nanoseconds(time);
}

class Load {
 public:
  Load(const char* device, std::uint64_t rate, double seconds, bool exchange, std::size_t message)
      : fd_(OpenPacketSocket(device, SOCK_RAW, 68, 2)),
        rate_(rate),
        sent_at_(static_cast<std::size_t>(static_cast<double>(rate) * seconds)) {
    constexpr int kOn = 1;
    Require(setsockopt(fd_, SOL_SOCKET, SO_TIMESTAMPNS, &kOn, sizeof(kOn)) == 0, "time stamps");
    latencies_.reserve(sent_at_.size());
    if (exchange) offered_.resize(sent_at_.size());
    FillWithFrames(out_, kDiscover, message);
    FillWithFrames(requests_, kDhcpRequest);
  }

  void Run() {
    const std::uint64_t start = Now();
    for (std::uint64_t passed = 0; sent_ < sent_at_.size(); passed = Now() - start) {
      // What is due at the end is sent, too: a process that had to wait keeps the rate.
      const bool last = ended != 0;
      Burst(std::min<std::uint64_t>(sent_at_.size(), passed * rate_ / kSecond + 1));
      if (passed - collected_ >= kCollectInterval) {
        Collect();
        collected_ = passed;
      }
      if (last) break;
      SleepUntil(start + std::max(sent_ * kSecond / rate_, passed + kTick));
    }
    seconds_ = static_cast<double>(Now() - start) / static_cast<double>(kSecond);
    const std::uint64_t end = Now();
    while (latencies_.size() < sent_ && Now() - end < kLinger) {
      Collect();
      SleepUntil(Now() + kCollectInterval);
    }
  }

  void Print() {
    std::ranges::sort(latencies_);
    std::printf(
        "{\"sent\":%zu,\"offers\":%zu,\"answered\":%zu,\"seconds\":%.3f,\"median_us\":%.1f,"
        "\"p99_us\":%.1f}\n",
        sent_, offers_, latencies_.size(), seconds_, Quantile(0.5), Quantile(0.99));
  }

 private:
  static constexpr std::size_t kControlSize = CMSG_SPACE(sizeof(timespec));

  void Burst(std::size_t upto) {
    while (sent_ < upto) {
      std::size_t count = 0;
      const std::uint64_t now = Now(CLOCK_REALTIME);
      for (; sent_ < upto && count < kBatch; ++count, ++sent_) {
        Number(out_.bytes[count].data(), static_cast<std::uint32_t>(sent_));
        sent_at_[sent_] = now;
      }
      out_.Send(fd_, static_cast<int>(count));
    }
  }

  void Collect() {
    int count = 0;
    do {
      count = in_.Receive(fd_, controls_);
      int requested = 0;
      for (int i = 0; i < count; ++i) Take(static_cast<std::size_t>(i), requested);
      if (requested > 0) requests_.Send(fd_, requested);
    } while (count == static_cast<int>(kBatch));
  }

  // Takes an answer; `requested` is the number of requests for offers that are to be sent.
  void Take(std::size_t index, int& requested) {
    const std::uint8_t* const message =
        in_.bytes[index].data() + Batch::kRoom + kEthernet + kHeaders;
    std::uint32_t xid = 0;
    std::memcpy(&xid, message + 4, sizeof(xid));
    xid = ntohl(xid);
    if (xid >= sent_ || sent_at_[xid] == 0) return;
    if (!offered_.empty() && !offered_[xid]) {
      offered_[xid] = true;
      ++offers_;
      Number(requests_.bytes[static_cast<std::size_t>(requested++)].data(), xid);
      return;
    }
    if (!offered_.empty() && message[kType] != kAck) return;
    const std::uint64_t received_at = ReceivedAt(in_.headers[index].msg_hdr);
    latencies_.push_back(received_at - std::min(received_at, sent_at_[xid]));
    sent_at_[xid] = 0;
  }

  double Quantile(double share) const {
    if (latencies_.empty()) return 0;
    const double last = static_cast<double>(latencies_.size() - 1);
    return static_cast<double>(latencies_[static_cast<std::size_t>(share * last)]) / 1000;
  }

  int fd_;
  std::uint64_t rate_;
  std::vector<std::uint64_t> sent_at_;  // 0: answered
  std::vector<std::uint64_t> latencies_;
  std::vector<bool> offered_;  // empty without exchanges
  std::size_t sent_ = 0;
  std::size_t offers_ = 0;
  std::uint64_t collected_ = 0;
  double seconds_ = 0;
  Batch out_;
  Batch requests_;
  Batch in_;
  alignas(cmsghdr) std::array<std::uint8_t, kBatch * kControlSize> controls_{};
};

}  // namespace

int main(int argc, char** argv) {
  const bool exchange = argc == 5 && std::strcmp(argv[4], "exchange") == 0;
  const bool cut = argc == 5 && !exchange;
  const std::size_t message = cut ? std::strtoul(argv[4], nullptr, 10) : kMessage;
  if (argc < 4 || argc > 5 || message == 0 || message > kMessage) {
    std::fputs("usage: relay_load DEVICE RATE SECONDS [exchange|SIZE]\n", stderr);
    return 2;
  }
  const std::uint64_t rate = std::strtoull(argv[2], nullptr, 10);
  Require(rate > 0, "rate");
  prctl(PR_SET_TIMERSLACK, 1);
  EndOnSignal();
  static Load load(argv[1], rate, std::strtod(argv[3], nullptr), exchange, message);
  load.Run();
  load.Print();
  return 0;
}
