#include "dhcp_manager/datapath/batch.h"

#include <cstring>
#include <span>

namespace dhcp_manager {
namespace {

// The link of IP_PKTINFO, which the relay's sockets ask for: it is the first and only control
// message.
int LinkOf(const msghdr& header) {
  const cmsghdr* const control = CMSG_FIRSTHDR(&header);
  if (control == nullptr || control->cmsg_level != IPPROTO_IP || control->cmsg_type != IP_PKTINFO) {
    return 0;
  }
  in_pktinfo info{};
  std::memcpy(&info, CMSG_DATA(control), sizeof(info));
  return info.ipi_ifindex;
}

}  // namespace

Inbox::Inbox() : buffers_(std::make_unique<std::array<Buffer, kBatch>>()) {
  for (std::size_t i = 0; i < kBatch; ++i) {
    Buffer& buffer = (*buffers_)[i];
    vectors_[i] = {.iov_base = buffer.bytes.data() + kHeadroom, .iov_len = kSize};
    msghdr& header = headers_[i].msg_hdr;
    header.msg_iov = &vectors_[i];
    header.msg_iovlen = 1;
    header.msg_name = &buffer.from;
    header.msg_control = buffer.control.data();
  }
}

std::size_t Inbox::Receive(BatchSocket& socket) {
  // Those behind are as they were: to touch them all for a single packet takes longer than it.
  for (mmsghdr& header : std::span(headers_).first(used_)) {
    header.msg_hdr.msg_namelen = sizeof(sockaddr_in);
    header.msg_hdr.msg_controllen = sizeof(Buffer::control);
  }
  used_ = socket.Receive(headers_);
  return used_;
}

Inbox::Message Inbox::Get(std::size_t index) {
  Buffer& buffer = (*buffers_)[index];
  const msghdr& header = headers_[index].msg_hdr;
  return {.data = buffer.bytes.data() + kHeadroom,
          .size = headers_[index].msg_len,
          .capacity = kSize,
          .from = &buffer.from,
          .link = LinkOf(header),
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

}  // namespace dhcp_manager
