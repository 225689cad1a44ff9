// Log lines of a process, on a zlog category of its own.
//
// Belongs to the thread of the process's loop. A shared library that links this has a log of its
// own beside the program's.

#ifndef BASE_SERVICE_LOG_H_
#define BASE_SERVICE_LOG_H_

#include <chrono>
#include <cstdint>
#include <source_location>
#include <string>

#include "base/token_bucket.h"

namespace base {

// From here on lines go to that category of the trace service; before, they are dropped.
void StartLog(const char* category);

// Something an operator wants to know of (level ERR), and what helps to find out why (level TRACE).
// The line names the caller's place in the source.
void LogError(const std::string& text,
              const std::source_location& where = std::source_location::current());
void LogTrace(const std::string& text,
              const std::source_location& where = std::source_location::current());

// Bounds how often one message, which others can cause at will, is written: at most `burst` lines
// at once, and one in `interval` after that. The next line that is written says how many were left
// out.
class LimitedLog {
 public:
  using Clock = TokenBucket::Clock;

  LimitedLog(double burst, std::chrono::seconds interval);

  void Error(const std::string& text, Clock::time_point now = Clock::now(),
             const std::source_location& where = std::source_location::current());

 private:
  TokenBucket allowed_;
  std::uint64_t left_out_ = 0;
};

}  // namespace base

#endif  // BASE_SERVICE_LOG_H_
