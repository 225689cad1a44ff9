// A server that offers an address to every relayed client, and acknowledges its request for it, as
// cheaply as it can:
//   relay_answer

#include <poll.h>

#include "bench/relay/frames.h"

using namespace bench;  // NOLINT(google-build-using-namespace): one program's own parts

int main() {
  EndOnSignal();
  const int fd = OpenUdpSocket(1);
  static Batch batch;
  while (ended == 0) {
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, 1000) <= 0) continue;
    const int count = batch.Receive(fd);
    for (int i = 0; i < count; ++i) {
      const auto at = static_cast<std::size_t>(i);
      std::uint8_t* const message = batch.bytes[at].data() + Batch::kRoom;
      message[0] = 2;
      message[16] = 192;  // yiaddr
      message[17] = 168;
      message[18] = 5;
      message[19] = 99;
      // An offer or an acknowledgement; the client's other options, option 82 too, go back as they
      // came.
      message[kType] = message[kType] == kDhcpRequest ? kAck : kOffer;
      auto& to = reinterpret_cast<sockaddr_in&>(batch.names[at]);
      std::memcpy(&to.sin_addr, message + 24, sizeof(to.sin_addr));
      to.sin_port = htons(67);
      batch.vectors[at].iov_len = batch.headers[at].msg_len;
      batch.headers[at].msg_hdr.msg_namelen = sizeof(to);
    }
    if (count > 0) batch.Send(fd, count);
  }
  return 0;
}
