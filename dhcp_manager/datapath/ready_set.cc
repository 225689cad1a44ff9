#include "dhcp_manager/datapath/ready_set.h"

#include "base/system_error.h"

namespace dhcp_manager {

ReadySet::ReadySet() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) base::ThrowSystemError("cannot make a set of sockets");
}

std::unique_ptr<ReadySet::Member> ReadySet::Add(int fd, Key key) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = key;
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
    base::ThrowSystemError("cannot add to the set of sockets");
  }
  return std::make_unique<Member>(*this, fd);
}

int ReadySet::Poll() {
  return epoll_wait(epoll_.get(), events_.data(), static_cast<int>(events_.size()), 0);
}

ReadySet::Member::Member(ReadySet& set, int fd) : set_(set), fd_(fd) {
  set_.events_.emplace_back();
}

ReadySet::Member::~Member() {
  set_.events_.pop_back();
  epoll_ctl(set_.epoll_.get(), EPOLL_CTL_DEL, fd_, nullptr);
}

}  // namespace dhcp_manager
