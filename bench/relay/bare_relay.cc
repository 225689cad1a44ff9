// The least that a relay of one packet socket and one UDP socket can spend: receives, writes
// giaddr, sends.
//   bare_relay DEVICE GIADDR SERVER [WAIT_US]
// With WAIT_US it gathers packets for so long before it takes them.

#include <poll.h>
#include <sys/prctl.h>

#include "bench/relay/frames.h"

namespace {

using namespace bench;  // NOLINT(google-build-using-namespace): one program's own parts

struct Relay {
  int clients = -1;
  int servers = -1;
  in_addr giaddr{};
  sockaddr_in server{};
  sockaddr_ll client{};
  Batch batch;

  void Requests() {
    const int count = batch.Receive(clients);
    for (int i = 0; i < count; ++i) {
      const auto at = static_cast<std::size_t>(i);
      std::uint8_t* const packet = batch.bytes[at].data() + Batch::kRoom;
      std::memcpy(packet + kHeaders + 24, &giaddr, sizeof(giaddr));
      ++packet[kHeaders + 3];
      batch.vectors[at] = {packet + kHeaders, batch.headers[at].msg_len - kHeaders};
      batch.headers[at].msg_hdr.msg_name = &server;
      batch.headers[at].msg_hdr.msg_namelen = sizeof(server);
    }
    if (count > 0) batch.Send(servers, count);
  }

  void Replies() {
    const int count = batch.Receive(servers);
    for (int i = 0; i < count; ++i) {
      const auto at = static_cast<std::size_t>(i);
      std::uint8_t* const message = batch.bytes[at].data() + Batch::kRoom;
      const std::size_t size = batch.headers[at].msg_len;
      WriteHeaders(message - kHeaders, size, giaddr.s_addr, INADDR_BROADCAST, 67, 68);
      batch.vectors[at] = {message - kHeaders, size + kHeaders};
      batch.headers[at].msg_hdr.msg_name = &client;
      batch.headers[at].msg_hdr.msg_namelen = sizeof(client);
    }
    if (count > 0) batch.Send(clients, count);
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fputs("usage: bare_relay DEVICE GIADDR SERVER [WAIT_US]\n", stderr);
    return 2;
  }
  EndOnSignal();
  prctl(PR_SET_TIMERSLACK, 1);
  static Relay relay;
  relay.clients = OpenPacketSocket(argv[1], SOCK_DGRAM, 67, 1);
  relay.servers = OpenUdpSocket(2);
  Require(inet_pton(AF_INET, argv[2], &relay.giaddr) == 1, argv[2]);
  relay.server.sin_family = AF_INET;
  relay.server.sin_port = htons(67);
  Require(inet_pton(AF_INET, argv[3], &relay.server.sin_addr) == 1, argv[3]);
  relay.client.sll_family = AF_PACKET;
  relay.client.sll_protocol = htons(ETH_P_IP);
  relay.client.sll_ifindex = static_cast<int>(if_nametoindex(argv[1]));
  relay.client.sll_halen = 6;
  std::memset(relay.client.sll_addr, 0xFF, 6);
  const unsigned long wait = argc > 4 ? std::strtoul(argv[4], nullptr, 10) : 0;
  while (ended == 0) {
    std::array<pollfd, 2> ready{pollfd{relay.clients, POLLIN, 0}, pollfd{relay.servers, POLLIN, 0}};
    if (poll(ready.data(), ready.size(), 1000) <= 0) continue;
    if (wait != 0) usleep(static_cast<useconds_t>(wait));
    if (wait != 0 || ready[0].revents != 0) relay.Requests();
    if (wait != 0 || ready[1].revents != 0) relay.Replies();
  }
  return 0;
}
