#include "trace.h"

#include <unistd.h>
#include <zlog.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "vxmw/vxmw.h"

namespace vxmw {
namespace {

constexpr char kBuiltIn[] =
    "[levels]\n"
    "TRACE = 10\n"
    "ERR = 12\n"
    "[formats]\n"
    "line = \"%d(%F %T).%ms %V %f %U:%L %m%n\"\n"
    "[rules]\n"
    "*.ERR >stderr; line\n";

enum class State { kOff, kOn };
State state = State::kOff;

// The configuration file to use; empty for the one built in.
std::string ConfigurationFile() {
  const char* named = std::getenv("VXMW_TRACE_CONF");
  if (named != nullptr && *named != '\0') return named;
  return access(VXMW_INSTALLED_TRACE_CONF, R_OK) == 0 ? VXMW_INSTALLED_TRACE_CONF : "";
}

void Complain(const std::string& file, const char* consequence) {
  std::fprintf(stderr, "trace: cannot use the configuration %s; %s\n", file.c_str(), consequence);
}

// zlog takes a missing file for an empty one, so whether it can be read is asked first.
bool IsReadable(const std::string& file) { return access(file.c_str(), R_OK) == 0; }

bool Start(const std::string& file) {
  if (file.empty()) return zlog_init_from_string(kBuiltIn) == 0;
  if (IsReadable(file) && zlog_init(file.c_str()) == 0) return true;
  Complain(file, "errors go to standard error, trace is off");
  zlog_init_from_string(kBuiltIn);
  return false;
}

}  // namespace

void ReloadTrace() {
  if (state == State::kOff) return;
  const std::string file = ConfigurationFile();
  const bool done = file.empty() ? zlog_reload_from_string(kBuiltIn) == 0
                                 : IsReadable(file) && zlog_reload(file.c_str()) == 0;
  if (!done) Complain(file, "the configuration stays as it was");
}

}  // namespace vxmw

int vxmw_trace_init(vxmw_t* mw, const char* application) {
  if (mw == nullptr || application == nullptr) return 0;
  if (vxmw::state == vxmw::State::kOn) return 1;
  vxmw::state = vxmw::State::kOn;
  return vxmw::Start(vxmw::ConfigurationFile()) ? 1 : 0;
}

zlog_category_t* vxmw_trace_register_category(const char* name) {
  if (name == nullptr || vxmw::state == vxmw::State::kOff) return nullptr;
  return zlog_get_category(name);
}
