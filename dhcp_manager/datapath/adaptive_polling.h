// Decides when to gather packets: to look into the sockets at intervals instead of waking up for
// each packet.
//
// A wake-up costs more than relaying a packet. That pays as long as packets are few: each is
// relayed when it comes. Gathering begins when wake-ups take a good part of a core, and ends when
// the packets would not.

#ifndef DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_
#define DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_

#include <chrono>
#include <cstddef>

namespace dhcp_manager {

class AdaptivePolling {
 public:
  using Clock = std::chrono::steady_clock;

  // Time between two polls: the longest that a packet is held, but for what the timer is late.
  static constexpr std::chrono::microseconds kInterval{230};

  // To be called after each wake-up for packets: true when gathering would pay.
  bool ShouldStart(Clock::time_point now) {
    if (now - window_start_ > kWindow) {
      window_start_ = now;
      wakes_ = 0;
    }
    if (++wakes_ <= kMaxWakes) return false;
    wakes_ = polls_ = idle_polls_ = 0;
    packets_ = 0;
    return true;
  }

  // To be called after each poll with the number of packets it found: true while gathering pays.
  bool ShouldContinue(std::size_t packets) {
    idle_polls_ = packets == 0 ? idle_polls_ + 1 : 0;
    if (idle_polls_ == kMaxIdlePolls) return false;
    packets_ += packets;
    if (++polls_ < kPolls) return true;
    const bool many = packets_ >= kMinPackets;
    polls_ = 0;
    packets_ = 0;
    return many;
  }

 private:
  // A round trip takes two wake-ups, and brings two packets.
  static constexpr std::chrono::milliseconds kWindow{20};
  static constexpr int kMaxWakes = 300;  // in a window: 7,500 round trips a second
  static constexpr int kPolls = kWindow / kInterval;
  static constexpr std::size_t kMinPackets = 240;  // in as many polls: 6,000 round trips a second
  static constexpr int kMaxIdlePolls = 5;          // in a row

  Clock::time_point window_start_;
  int wakes_ = 0;
  int polls_ = 0;
  int idle_polls_ = 0;
  std::size_t packets_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_ADAPTIVE_POLLING_H_
