// Sockets of which those with packets are found by one system call, however many there are.

#ifndef DHCP_MANAGER_DATAPATH_READY_SET_H_
#define DHCP_MANAGER_DATAPATH_READY_SET_H_

#include <sys/epoll.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/descriptor.h"

namespace dhcp_manager {

class ReadySet {
 public:
  // What a socket is known by.
  using Key = std::uint64_t;

  // A socket's place in the set, which it leaves with this. The set and the descriptor must outlive
  // it.
  class Member {
   public:
    Member(ReadySet& set, int fd);
    ~Member();
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

   private:
    ReadySet& set_;
    const int fd_;
  };

  // Throws std::system_error.
  ReadySet();

  // Throws std::system_error.
  std::unique_ptr<Member> Add(int fd, Key key);

  // Calls `visit` with the key of each socket that is readable, in no order. Does not wait. `visit`
  // adds and removes none.
  template <typename Visit>
  void ForEachReady(Visit visit) {
    const int count = Poll();
    for (int i = 0; i < count; ++i) visit(events_[static_cast<std::size_t>(i)].data.u64);
  }

 private:
  // Fills events_ from the front; returns how many there are.
  int Poll();

  base::Descriptor epoll_;
  std::vector<epoll_event> events_;  // room for each member
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_READY_SET_H_
