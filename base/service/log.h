// Log lines of a process, on a zlog category of its own.
//
// Belongs to the thread of the process's loop. A shared library that links this has a log of its
// own beside the program's.

#ifndef BASE_SERVICE_LOG_H_
#define BASE_SERVICE_LOG_H_

#include <chrono>
#include <cstdint>
#include <string>

#include "base/token_bucket.h"

namespace base {

// The place in the source that a log line names: by default, the caller's. (Clang 14 has no
// std::source_location.) `function` is the bare name, in a lambda "operator()".
struct SourceLine {
  static constexpr SourceLine Current(const char* file = __builtin_FILE(),
                                      const char* function = __builtin_FUNCTION(),
                                      int line = __builtin_LINE()) {
    return {file, function, line};
  }

  const char* file;
  const char* function;
  int line;
};

// From here on lines go to that category of the trace service; before, they are dropped.
void StartLog(const char* category);

// LogError is for what an operator must know (level ERR), LogTrace for diagnosis (level TRACE).
void LogError(const std::string& text, const SourceLine& where = SourceLine::Current());
void LogTrace(const std::string& text, const SourceLine& where = SourceLine::Current());

// Limits how often one message that others can cause at will is written: at most `burst` lines at
// once, and one in `interval` after that. The next line that is written says how many were left
// out.
class LimitedLog {
 public:
  using Clock = TokenBucket::Clock;

  LimitedLog(double burst, std::chrono::seconds interval);

  void Error(const std::string& text, Clock::time_point now = Clock::now(),
             const SourceLine& where = SourceLine::Current());
  // The text is what `make_text` returns, which is called only for a line that is written.
  template <typename MakeText>
  void ErrorOf(MakeText make_text, Clock::time_point now = Clock::now(),
               const SourceLine& where = SourceLine::Current()) {
    if (Allows(now)) Write(make_text(), where);
  }

 private:
  // Whether a line may be written; counts it when not.
  bool Allows(Clock::time_point now);
  void Write(const std::string& text, const SourceLine& where);

  TokenBucket allowed_;
  std::uint64_t left_out_ = 0;
};

}  // namespace base

#endif  // BASE_SERVICE_LOG_H_
