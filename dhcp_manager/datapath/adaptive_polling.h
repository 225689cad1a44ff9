// Decides when to poll the sockets in intervals instead of waking up for each packet.
//
// Under load the loop would wake up for a packet or two at a time, which costs more than relaying
// them. Polling begins when wake-ups come fast, and ends when nothing has arrived for a while.

#ifndef DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_
#define DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_

#include <chrono>
#include <cstddef>

namespace dhcp_manager {

class AdaptivePolling {
 public:
  using Clock = std::chrono::steady_clock;

  // Time between two polls: the longest that a packet waits.
  static constexpr std::chrono::microseconds kInterval{1000};

  // To be called after each wake-up for packets: true when polling would pay.
  bool ShouldStart(Clock::time_point now) {
    if (now - window_start_ > kWindow) {
      window_start_ = now;
      wakes_ = 0;
    }
    idle_polls_ = 0;
    return ++wakes_ > kMaxWakes;
  }

  // To be called after each poll with the number of packets it found: true while polling pays.
  bool ShouldContinue(std::size_t packets) {
    idle_polls_ = packets == 0 ? idle_polls_ + 1 : 0;
    return idle_polls_ < kMaxIdlePolls;
  }

 private:
  static constexpr std::chrono::milliseconds kWindow{10};
  static constexpr int kMaxWakes = 20;  // in a window
  static constexpr int kMaxIdlePolls = 10;

  Clock::time_point window_start_;
  int wakes_ = 0;
  int idle_polls_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_
