#include "dhcp_manager/datapath/batch.h"

#include <poll.h>

#include <cerrno>

namespace dhcp_manager {
namespace {

// How long a full socket is waited for before the packet counts as lost, in milliseconds.
constexpr int kPatience = 5;

}  // namespace

Inbox::Inbox() : buffers_(std::make_unique<std::array<Buffer, kBatch>>()) {
  for (std::size_t i = 0; i < kBatch; ++i) {
    Buffer& buffer = (*buffers_)[i];
    vectors_[i] = {.iov_base = buffer.bytes.data() + kHeadroom, .iov_len = kSize};
    msghdr& header = headers_[i].msg_hdr;
    header.msg_iov = &vectors_[i];
    header.msg_iovlen = 1;
    header.msg_name = &buffer.from;
  }
}

std::size_t Inbox::Receive(int fd) {
  for (mmsghdr& header : headers_) header.msg_hdr.msg_namelen = sizeof(sockaddr_in);
  const int received = recvmmsg(fd, headers_.data(), kBatch, MSG_DONTWAIT, nullptr);
  return received < 0 ? 0 : static_cast<std::size_t>(received);
}

Inbox::Message Inbox::Get(std::size_t index) {
  Buffer& buffer = (*buffers_)[index];
  const msghdr& header = headers_[index].msg_hdr;
  return {.data = buffer.bytes.data() + kHeadroom,
          .size = headers_[index].msg_len,
          .capacity = kSize,
          .from = &buffer.from,
          .truncated = (header.msg_flags & MSG_TRUNC) != 0};
}

void Outbox::Add(const void* data, std::size_t size, const sockaddr_in& to, std::size_t tag) {
  addresses_[count_].ip = to;
  Add(data, size, tag, sizeof(to));
}

void Outbox::Add(const void* data, std::size_t size, const sockaddr_ll& to, std::size_t tag) {
  addresses_[count_].link = to;
  Add(data, size, tag, sizeof(to));
}

void Outbox::Add(const void* data, std::size_t size, std::size_t tag, std::size_t address_size) {
  tags_[count_] = tag;
  vectors_[count_] = {.iov_base = const_cast<void*>(data), .iov_len = size};
  msghdr& header = headers_[count_].msg_hdr;
  header.msg_name = &addresses_[count_];
  header.msg_namelen = static_cast<socklen_t>(address_size);
  header.msg_iov = &vectors_[count_];
  header.msg_iovlen = 1;
  ++count_;
}

std::size_t Outbox::Send(std::size_t first) {
  bool waited = false;
  while (true) {
    const int sent =
        sendmmsg(fd_, &headers_[first], static_cast<unsigned>(count_ - first), MSG_DONTWAIT);
    if (sent >= 0) return static_cast<std::size_t>(sent);
    if (errno == EINTR) continue;
    if (errno != EAGAIN || waited) return 0;
    pollfd room{.fd = fd_, .events = POLLOUT, .revents = 0};
    poll(&room, 1, kPatience);
    waited = true;
  }
}

}  // namespace dhcp_manager
