#include "base/service/log.h"

#include <zlog.h>

#include <cstring>

#include <vxmw/vxmw.h>

#include "base/severity.h"

namespace base {
namespace {

zlog_category_t* category = nullptr;

void Log(int level, const std::string& text, const SourceLine& where) {
  if (category == nullptr) return;
  zlog(category, where.file, std::strlen(where.file), where.function, std::strlen(where.function),
       where.line, level, "%s", text.c_str());
}

}  // namespace

void StartLog(const char* name) { category = vxmw_trace_register_category(name); }

void LogError(const std::string& text, const SourceLine& where) { Log(kErrorLevel, text, where); }

void LogTrace(const std::string& text, const SourceLine& where) { Log(kTraceLevel, text, where); }

LimitedLog::LimitedLog(double burst, std::chrono::seconds interval)
    : allowed_({.rate = 1.0 / static_cast<double>(interval.count()), .burst = burst},
               Clock::now()) {}

void LimitedLog::Error(const std::string& text, Clock::time_point now, const SourceLine& where) {
  if (Allows(now)) Write(text, where);
}

bool LimitedLog::Allows(Clock::time_point now) {
  const bool allowed = allowed_.Take(now);
  if (!allowed) ++left_out_;
  return allowed;
}

void LimitedLog::Write(const std::string& text, const SourceLine& where) {
  const std::string more =
      left_out_ == 0 ? "" : " (" + std::to_string(left_out_) + " more of these not logged)";
  left_out_ = 0;
  LogError(text + more, where);
}

}  // namespace base
