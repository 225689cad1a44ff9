// Gives sockets turns of the loop behind the packets: one socket a turn, each in its turn.

#ifndef DHCP_MANAGER_CONTROL_TURNS_H_
#define DHCP_MANAGER_CONTROL_TURNS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include <vxmw/event.h>

#include "base/descriptor.h"

namespace dhcp_manager {

class Turns {
 public:
  // `id` is that of a socket, `ready_events` what it is ready for. May add and remove sockets.
  using Turn = std::function<void(std::uint64_t id, std::uint32_t ready_events)>;

  // Throws std::system_error.
  Turns(vxmw_t* mw, Turn turn);

  // Watches `fd` for `events` (EPOLLIN and its like) until Remove.
  void Add(int fd, std::uint64_t id, std::uint32_t events);
  void SetEvents(int fd, std::uint64_t id, std::uint32_t events);
  void Remove(int fd);

 private:
  // Packets that never pause leave one turn in this time.
  static constexpr std::chrono::milliseconds kShare{10};

  void Control(int operation, int fd, std::uint64_t id, std::uint32_t events);
  void TakeTurn();
  void OnShare();

  const Turn turn_;
  base::Descriptor ready_;
  std::size_t sockets_ = 0;
  vxmw::IoSource behind_packets_;
  vxmw::TimerSource share_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_TURNS_H_
