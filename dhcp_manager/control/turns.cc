#include "dhcp_manager/control/turns.h"

#include <sys/epoll.h>

#include <utility>

#include "base/system_error.h"

namespace dhcp_manager {
namespace {

base::Descriptor MakeEpoll() {
  base::Descriptor fd(epoll_create1(EPOLL_CLOEXEC));
  if (!fd) base::ThrowSystemError("cannot watch the control socket");
  return fd;
}

}  // namespace

Turns::Turns(vxmw_t* mw, Turn turn)
    : turn_(std::move(turn)),
      ready_(MakeEpoll()),
      behind_packets_(
          mw, ready_.get(), EPOLLIN, [this](std::uint32_t /*events*/) { TakeTurn(); },
          vxmw::Priority::kBackground),
      share_(mw, [this] { OnShare(); }) {}

void Turns::Add(int fd, std::uint64_t id, std::uint32_t events) {
  Control(EPOLL_CTL_ADD, fd, id, events);
  if (sockets_++ == 0) share_.Arm(kShare);
}

void Turns::SetEvents(int fd, std::uint64_t id, std::uint32_t events) {
  Control(EPOLL_CTL_MOD, fd, id, events);
}

void Turns::Remove(int fd) {
  Control(EPOLL_CTL_DEL, fd, 0, 0);
  --sockets_;
}

void Turns::Control(int operation, int fd, std::uint64_t id, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (epoll_ctl(ready_.get(), operation, fd, &event) != 0) {
    base::ThrowSystemError("cannot watch a connection of the control socket");
  }
}

// The kernel moves the socket that it names to the end of its list, so that each gets its turn.
void Turns::TakeTurn() {
  epoll_event event{};
  if (epoll_wait(ready_.get(), &event, 1, 0) == 1) turn_(event.data.u64, event.events);
}

void Turns::OnShare() {
  if (sockets_ == 0) return;
  share_.Arm(kShare);
  TakeTurn();
}

}  // namespace dhcp_manager
