// The daemon's one log category, and how a log line is written.

#ifndef SRC_LIB_LOGGER_H_
#define SRC_LIB_LOGGER_H_

#include <zlog.h>

#include <cstddef>

#include <vxmw/vxmw.h>

#include "src/lib/require_asserts.h"

namespace dhcp_relay_app {

inline constexpr char kApplicationName[] = "dhcp-relay-app";

inline constexpr int kTraceLevel = 10;
inline constexpr int kErrorLevel = 12;

// Size of the zeroed buffer in which the text of a fault record is built.
inline constexpr std::size_t kFaultTextSize = 350;

class Logger {
 public:
  static Logger& Instance();

  // Starts the trace service and registers the category. A failure of either is reported as a fault
  // and does not stop the daemon.
  void Init(vxmw_t* mw);

  bool TraceEnabled() const { return zlog_level_enabled(category, kTraceLevel) != 0; }

  // Null until Init has succeeded. zlog ignores lines of a null category only while it does not
  // run, and the middleware returns no null category once it has started zlog.
  zlog_category_t* category = nullptr;

 private:
  constexpr Logger() = default;

  static Logger instance_;
};

}  // namespace dhcp_relay_app

// Log lines of a source file, which names itself in a constant kSourcePath. The function field is
// the bare name of the caller.
#define LOG_LINE(log_level, ...)                                                            \
  zlog(::dhcp_relay_app::Logger::Instance().category, kSourcePath, sizeof(kSourcePath) - 1, \
       __func__, sizeof(__func__) - 1, __LINE__, log_level, __VA_ARGS__)

#define LOG_ERROR(...) LOG_LINE(::dhcp_relay_app::kErrorLevel, __VA_ARGS__)

// Written whatever the level; zlog decides.
#define LOG_ENTRY_POINT() LOG_LINE(::dhcp_relay_app::kTraceLevel, "Entry Point")

// The arguments are evaluated only when trace is on.
#define LOG_TRACE(...)                                         \
  do {                                                         \
    if (::dhcp_relay_app::Logger::Instance().TraceEnabled()) { \
      LOG_LINE(::dhcp_relay_app::kTraceLevel, __VA_ARGS__);    \
    }                                                          \
  } while (false)

#endif  // SRC_LIB_LOGGER_H_
