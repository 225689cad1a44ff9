#include "platform/vxmidware/src/trace.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zlog.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <vxmw/vxmw.h>

#include "base/severity.h"

namespace vxmw {
namespace {

// Errors alone, to standard error.
std::string BuiltIn() {
  return "[levels]\n"
         "TRACE = " +
         std::to_string(base::kTraceLevel) + "\n" + "ERR = " + std::to_string(base::kErrorLevel) +
         ", LOG_ERR\n"
         "[formats]\n"
         "line = \"%d(%F %T).%ms %V %F %U:%L %m%n\"\n"
         "[rules]\n"
         "*.ERR >stderr; line\n";
}

// Null until the service has started; it is never stopped, so that categories stay valid, and exit
// handlers may log, until the process ends.
zlog_category_t* fallback = nullptr;

// zlog refuses a name that is too long.
zlog_category_t* FallbackCategory(const char* application) {
  zlog_category_t* category = zlog_get_category(application);
  return category != nullptr ? category : zlog_get_category("default");
}

std::string ConfigurationFile() { return TraceConfiguration(VXMW_INSTALLED_TRACE_CONF); }

void Complain(const std::string& file, const char* consequence) {
  std::fprintf(stderr, "trace: cannot use the configuration %s; %s\n", file.c_str(), consequence);
}

// zlog accepts a directory or an empty file as a configuration without rules, which drops every
// line, errors included. An empty file is more likely a truncated one.
bool IsUsable(const std::string& file) {
  struct stat status{};
  if (stat(file.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) return false;
  if (S_ISREG(status.st_mode) && status.st_size == 0) return false;
  return access(file.c_str(), R_OK) == 0;
}

bool Start(const std::string& file) {
  if (file.empty()) return zlog_init_from_string(BuiltIn().c_str()) == 0;
  if (IsUsable(file) && zlog_init(file.c_str()) == 0) return true;
  Complain(file, "errors go to standard error, trace is off");
  zlog_init_from_string(BuiltIn().c_str());
  return false;
}

}  // namespace

std::string TraceConfiguration(const std::string& installed) {
  const char* named = std::getenv("VXMW_TRACE_CONF");
  if (named != nullptr && *named != '\0') return named;
  return access(installed.c_str(), F_OK) == 0 ? installed : "";
}

void ReloadTrace() {
  if (fallback == nullptr) return;
  const std::string file = ConfigurationFile();
  const bool done = file.empty() ? zlog_reload_from_string(BuiltIn().c_str()) == 0
                                 : IsUsable(file) && zlog_reload(file.c_str()) == 0;
  if (!done) Complain(file, "the configuration stays as it was");
}

}  // namespace vxmw

int vxmw_trace_init(vxmw_t* mw, const char* application) {
  if (mw == nullptr || application == nullptr) return 0;
  if (vxmw::fallback != nullptr) return 1;
  const bool is_started = vxmw::Start(vxmw::ConfigurationFile());
  vxmw::fallback = vxmw::FallbackCategory(application);
  if (vxmw::fallback != nullptr) return is_started ? 1 : 0;
  // zlog ignores lines of a null category when it does not run, and crashes on them when it does.
  zlog_fini();
  return 0;
}

zlog_category_t* vxmw_trace_register_category(const char* name) {
  if (vxmw::fallback == nullptr) return nullptr;
  zlog_category_t* category = name != nullptr ? zlog_get_category(name) : nullptr;
  return category != nullptr ? category : vxmw::fallback;
}
