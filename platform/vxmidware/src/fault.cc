#include <errno.h>
#include <syslog.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include <vxmw/vxmw.h>

#include "base/severity.h"
#include "platform/vxmidware/src/application.h"
#include "platform/vxmidware/src/fault_file.h"
#include "platform/vxmidware/src/standard_error.h"
#include "platform/vxmidware/src/syslog_socket.h"

namespace vxmw {
namespace {

constexpr char kDefaultStateDirectory[] = "/var/lib/dhcp-relay";

// Never destroyed, since a fault may be raised by an exit handler.
std::string& ApplicationName() {
  static auto* const name = new std::string;
  return *name;
}

std::string StateDirectory() {
  const char* directory = std::getenv("VXMW_STATE_DIR");
  return directory != nullptr && *directory != '\0' ? directory : kDefaultStateDirectory;
}

// UTC with milliseconds, ISO 8601.
std::string Now() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto fraction =
      std::chrono::duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s.%03dZ", date.data(), static_cast<int>(fraction));
  return text.data();
}

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

std::string Record(int severity, const char* function, const char* source_path, int line,
                   const char* text) {
  const nlohmann::ordered_json record = {{"time", Now()},
                                         {"application", Application()},
                                         {"severity", severity},
                                         {"function", OrEmpty(function)},
                                         {"path", OrEmpty(source_path)},
                                         {"line", line},
                                         {"text", OrEmpty(text)}};
  return record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Notes why the record at hand was not written, or "" for one that was. True when that differs from
// the record before.
bool IsNews(const std::string& why) {
  static std::mutex mutex;
  static auto* const noted = new std::string;
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(*noted, why) != why;
}

void ReportUnwritten(const std::string& record, const std::string& why) {
  std::string text = "fault " + record + "\n";
  if (IsNews(why)) text += "(faults cannot be recorded: " + why + ")\n";
  WriteToStandardError(text);
}

void Raise(int severity, const std::string& record) {
  SendToSyslog((severity >= base::kFaultCritical ? LOG_CRIT : LOG_ERR) | LOG_DAEMON,
               "fault " + record);
  try {
    AppendFault(StateDirectory(), record);
    IsNews("");
  } catch (const std::exception& error) {
    ReportUnwritten(record, error.what());
  }
}

}  // namespace

void SetApplication(const std::string& name) { ApplicationName() = name; }

std::string Application() {
  return ApplicationName().empty() ? program_invocation_short_name : ApplicationName();
}

}  // namespace vxmw

void vxmw_gen_fault(int severity, const char* function, const char* source_path, int line,
                    const char* text) {
  const int saved_errno = errno;
  try {
    vxmw::Raise(severity, vxmw::Record(severity, function, source_path, line, text));
  } catch (...) {
    for (const char* part : {"no memory to record a fault of ", function, ": ", text, "\n"}) {
      vxmw::WriteToStandardError(vxmw::OrEmpty(part));
    }
  }
  errno = saved_errno;
}
