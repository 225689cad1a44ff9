#include "base/service/log.h"

#include <zlog.h>

#include <cstring>
#include <string_view>

#include <vxmw/vxmw.h>

#include "base/severity.h"

namespace base {
namespace {

zlog_category_t* category = nullptr;

// "Apply" of "void dhcp_manager::Resync::Apply(const Call&)".
std::string BareName(std::string_view function) {
  function = function.substr(0, function.find('('));
  const std::size_t before = function.find_last_of(": ");
  return std::string(before == std::string_view::npos ? function : function.substr(before + 1));
}

void Log(int level, const std::string& text, const std::source_location& where) {
  if (category == nullptr) return;
  const std::string function = BareName(where.function_name());
  zlog(category, where.file_name(), std::strlen(where.file_name()), function.c_str(),
       function.size(), static_cast<long>(where.line()), level, "%s", text.c_str());
}

}  // namespace

void StartLog(const char* name) { category = vxmw_trace_register_category(name); }

void LogError(const std::string& text, const std::source_location& where) {
  Log(kErrorLevel, text, where);
}

void LogTrace(const std::string& text, const std::source_location& where) {
  Log(kTraceLevel, text, where);
}

LimitedLog::LimitedLog(double burst, std::chrono::seconds interval)
    : allowed_({.rate = 1.0 / static_cast<double>(interval.count()), .burst = burst},
               Clock::now()) {}

void LimitedLog::Error(const std::string& text, Clock::time_point now,
                       const std::source_location& where) {
  if (!allowed_.Take(now)) {
    ++left_out_;
    return;
  }
  const std::string more =
      left_out_ == 0 ? "" : " (" + std::to_string(left_out_) + " more of these not logged)";
  left_out_ = 0;
  LogError(text + more, where);
}

}  // namespace base
