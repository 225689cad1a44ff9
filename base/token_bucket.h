// A rate limit: tokens accrue at a constant rate, up to a burst.

#ifndef BASE_TOKEN_BUCKET_H_
#define BASE_TOKEN_BUCKET_H_

#include <algorithm>
#include <chrono>

namespace base {

struct RateLimit {
  double rate = 0;   // tokens a second
  double burst = 0;  // tokens kept at most; at least 1
};

class TokenBucket {
 public:
  using Clock = std::chrono::steady_clock;

  // Full at first.
  TokenBucket(RateLimit limit, Clock::time_point now)
      : limit_(limit), tokens_(limit.burst), last_(now) {}

  // Whether a token is there; takes it.
  bool Take(Clock::time_point now) {
    const double passed = std::chrono::duration<double>(now - last_).count();
    last_ = now;
    tokens_ = std::min(limit_.burst, tokens_ + passed * limit_.rate);
    if (tokens_ < 1) return false;
    tokens_ -= 1;
    return true;
  }

 private:
  RateLimit limit_;
  double tokens_;
  Clock::time_point last_;
};

}  // namespace base

#endif  // BASE_TOKEN_BUCKET_H_
