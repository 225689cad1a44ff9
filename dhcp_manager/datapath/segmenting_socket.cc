#include "dhcp_manager/datapath/segmenting_socket.h"

#include <netinet/in.h>
#include <netinet/udp.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

namespace dhcp_manager {
namespace {

// The kernel's limits: UDP_MAX_SEGMENTS, and the payload of the largest IPv4 datagram.
constexpr std::size_t kMaxSegments = 64;
constexpr std::size_t kMaxPayload = 65'507;

using SegmentSize = std::uint16_t;

bool IsSupported(int fd) {
  constexpr int kOff = 0;
  return setsockopt(fd, SOL_UDP, UDP_SEGMENT, &kOff, sizeof(kOff)) == 0;
}

std::size_t SizeOf(const mmsghdr& message) { return message.msg_hdr.msg_iov->iov_len; }

bool Continues(const mmsghdr& previous, const mmsghdr& next) {
  const msghdr& from = previous.msg_hdr;
  const msghdr& to = next.msg_hdr;
  return to.msg_iov == from.msg_iov + 1 && SizeOf(next) == SizeOf(previous) &&
         to.msg_namelen == from.msg_namelen &&
         std::memcmp(to.msg_name, from.msg_name, to.msg_namelen) == 0;
}

// The number of messages, from the front, that go as one.
std::size_t RunOf(std::span<const mmsghdr> messages) {
  const std::size_t fitting = kMaxPayload / std::max<std::size_t>(SizeOf(messages.front()), 1);
  const std::size_t max = std::min({messages.size(), kMaxSegments, fitting});
  std::size_t run = 1;
  while (run < max && Continues(messages[run - 1], messages[run])) ++run;
  return run;
}

// What is sent in one call, made of the front of `messages`.
class Runs {
 public:
  explicit Runs(std::span<mmsghdr> messages) {
    while (count_ < kMaxRuns && !messages.empty()) {
      const std::size_t run = RunOf(messages);
      Add(messages.front(), run);
      messages = messages.subspan(run);
    }
  }

  std::span<mmsghdr> headers() { return {headers_.data(), count_}; }
  // The number of messages in the first run, and in so many runs from the front.
  std::size_t first() const { return sizes_.front(); }
  std::size_t messages(std::size_t runs) const {
    std::size_t sum = 0;
    for (std::size_t i = 0; i < runs; ++i) sum += sizes_[i];
    return sum;
  }

 private:
  static constexpr std::size_t kMaxRuns = 64;
  struct Control {
    alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof(SegmentSize))> bytes;
  };

  void Add(const mmsghdr& first, std::size_t run) {
    sizes_[count_] = run;
    headers_[count_] = first;
    if (run > 1) Join(headers_[count_].msg_hdr, run, controls_[count_]);
    ++count_;
  }

  static void Join(msghdr& header, std::size_t run, Control& room) {
    header.msg_iovlen = run;
    header.msg_control = room.bytes.data();
    header.msg_controllen = room.bytes.size();
    cmsghdr* const control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_UDP;
    control->cmsg_type = UDP_SEGMENT;
    control->cmsg_len = CMSG_LEN(sizeof(SegmentSize));
    const auto size = static_cast<SegmentSize>(header.msg_iov->iov_len);
    std::memcpy(CMSG_DATA(control), &size, sizeof(size));
  }

  // Only the first `count_` of each are ever set.
  std::size_t count_ = 0;
  std::array<mmsghdr, kMaxRuns> headers_;
  std::array<Control, kMaxRuns> controls_;
  std::array<std::size_t, kMaxRuns> sizes_;
};

}  // namespace

SegmentingSocket::SegmentingSocket(base::Descriptor descriptor)
    : KernelSocket(std::move(descriptor)), supported_(IsSupported(fd())) {}

std::size_t SegmentingSocket::Send(std::span<mmsghdr> messages) {
  if (!supported_ || messages.size() < 2) return KernelSocket::Send(messages);
  Runs runs(messages);
  const std::size_t sent = KernelSocket::Send(runs.headers());
  if (sent > 0) return runs.messages(sent);
  // A datagram may pass where its run does not: through a device of a small MTU, or one that
  // leaves checksums to us.
  return runs.first() == 1 ? 0 : KernelSocket::Send(messages.first(runs.first()));
}

}  // namespace dhcp_manager
