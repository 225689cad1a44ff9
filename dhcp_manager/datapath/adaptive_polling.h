// When to stop waiting for each packet by itself.
//
// Under load the loop would wake up for a packet or two at a time, which costs more than relaying
// them. Then the sockets are looked into at intervals instead, until there is nothing in them for a
// while.

#ifndef DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_
#define DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_

#include <chrono>
#include <cstddef>

namespace dhcp_manager {

class AdaptivePolling {
 public:
  using Clock = std::chrono::steady_clock;

  // What a packet waits for at most while the sockets are looked into at intervals.
  static constexpr std::chrono::microseconds kInterval{1000};

  // The loop woke up for packets: whether they come so fast that it is time to change to intervals.
  bool IsFast(Clock::time_point now) {
    if (now - window_ > kWindow) {
      window_ = now;
      wakes_ = 0;
    }
    idle_ = 0;
    return ++wakes_ > kWakes;
  }

  // An interval is over, in which so many packets came: whether to go on like this.
  bool GoesOn(std::size_t packets) {
    idle_ = packets == 0 ? idle_ + 1 : 0;
    return idle_ < kIdle;
  }

 private:
  static constexpr std::chrono::milliseconds kWindow{10};
  static constexpr int kWakes = 20;
  static constexpr int kIdle = 10;

  Clock::time_point window_;
  int wakes_ = 0;
  int idle_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_
