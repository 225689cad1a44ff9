#include <errno.h>
#include <syslog.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>

#include <vxmw/vxmw.h>

#include "base/severity.h"
#include "platform/vxmidware/src/application.h"
#include "platform/vxmidware/src/fault_file.h"

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

void Raise(int severity, const std::string& record) {
  syslog((severity >= base::kFaultCritical ? LOG_CRIT : LOG_ERR) | LOG_DAEMON, "fault %s",
         record.c_str());
  try {
    AppendFault(StateDirectory(), record);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "fault %s\n(the fault could not be recorded: %s)\n", record.c_str(),
                 error.what());
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
    std::fprintf(stderr, "fault in %s (%s:%d): %s\n", vxmw::OrEmpty(function),
                 vxmw::OrEmpty(source_path), line, vxmw::OrEmpty(text));
  }
  errno = saved_errno;
}
