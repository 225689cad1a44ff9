// Counts the DHCP messages that pass on a device until SIGTERM, and prints one line of JSON: by
// direction the number of each message type, and the packets that the kernel had no room for.
//   relay_capture DEVICE

#include <map>
#include <string>

#include "bench/relay/frames.h"

namespace {

using namespace bench;  // NOLINT(google-build-using-namespace): one program's own parts

constexpr std::size_t kOptions = 240;
constexpr std::uint8_t kTypeOption = 53;
constexpr int kBuffer = 128 * 1024 * 1024;
constexpr useconds_t kPause = 10000;  // microseconds

using Counts = std::map<unsigned, std::uint64_t>;  // by message type; 0 is for none

// Without a filter, so that what the relay and the load leave out is seen, too.
int OpenCapture(const char* device) {
  const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, 0);
  Require(fd >= 0, "packet socket");
  setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kBuffer, sizeof(kBuffer));
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(device));
  Require(address.sll_ifindex != 0, device);
  Require(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0, "bind");
  return fd;
}

bool IsDhcp(const std::uint8_t* frame, std::size_t size) {
  const auto word = [frame](std::size_t at) { return frame[at] << 8U | frame[at + 1]; };
  if (size < kEthernet + kHeaders + kOptions || word(12) != ETH_P_IP) return false;
  const int port = word(kEthernet + 22);
  return frame[kEthernet + 9] == IPPROTO_UDP && (port == 67 || port == 68);
}

unsigned TypeOf(const std::uint8_t* message, std::size_t size) {
  std::size_t at = kOptions;
  while (at + 2 < size && message[at] != 0xFF) {
    if (message[at] == kTypeOption) return message[at + 2];
    at += message[at] == 0 ? 1U : 2U + message[at + 1];
  }
  return 0;
}

std::string AsJson(const Counts& counts) {
  std::string text;
  for (const auto& [type, count] : counts) {
    text.append(text.empty() ? "" : ",").append("\"").append(std::to_string(type)).append("\":");
    text.append(std::to_string(count));
  }
  return "{" + text + "}";
}

struct Capture {
  Batch batch;
  Counts in;
  Counts out;

  void Read(int fd) {
    for (int count = batch.Receive(fd); count > 0; count = batch.Receive(fd)) {
      for (int i = 0; i < count; ++i) Take(static_cast<std::size_t>(i));
    }
  }

  void Take(std::size_t i) {
    const std::uint8_t* const frame = batch.bytes[i].data() + Batch::kRoom;
    const std::size_t size = batch.headers[i].msg_len;
    if (!IsDhcp(frame, size)) return;
    const auto& name = reinterpret_cast<const sockaddr_ll&>(batch.names[i]);
    const std::size_t headers = kEthernet + kHeaders;
    ++(name.sll_pkttype == PACKET_OUTGOING ? out : in)[TypeOf(frame + headers, size - headers)];
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: relay_capture DEVICE\n", stderr);
    return 2;
  }
  EndOnSignal();
  const int fd = OpenCapture(argv[1]);
  std::puts("ready");
  std::fflush(stdout);
  static Capture capture;
  // Packets are let gather, so that the capture takes no processor time from what it watches.
  while (ended == 0) {
    usleep(kPause);
    capture.Read(fd);
  }
  capture.Read(fd);
  tpacket_stats lost{};
  socklen_t size = sizeof(lost);
  Require(getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &lost, &size) == 0, "statistics");
  std::printf("{\"in\":%s,\"out\":%s,\"lost\":%u}\n", AsJson(capture.in).c_str(),
              AsJson(capture.out).c_str(), lost.tp_drops);
  return 0;
}
