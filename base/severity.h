// The numbers of log levels and fault severities.

#ifndef BASE_SEVERITY_H_
#define BASE_SEVERITY_H_

namespace base {

// Levels of log lines, as the trace configuration names them: TRACE and ERR.
inline constexpr int kTraceLevel = 10;
inline constexpr int kErrorLevel = 12;

// Severities of fault records.
inline constexpr int kFaultError = 0;
inline constexpr int kFaultCritical = 1;

}  // namespace base

#endif  // BASE_SEVERITY_H_
