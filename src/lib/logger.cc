#include "src/lib/logger.h"

namespace dhcp_relay_app {
namespace {

constexpr char kSourcePath[] = "src/lib/logger";

// Fault records are identified by these numbers, which do not follow the code around them.
constexpr int kTraceInitFaultLine = 23;
constexpr int kRegisterCategoryFaultLine = 25;

void ReportFault(int line) {
  const char text[kFaultTextSize] = {};
  vxmw_gen_fault(0, "Init", kSourcePath, line, text);
}

}  // namespace

constinit Logger Logger::instance_;

Logger& Logger::Instance() { return instance_; }

void Logger::Init(vxmw_t* mw) {
  if (vxmw_trace_init(mw, kApplicationName) == 0) ReportFault(kTraceInitFaultLine);
  category = vxmw_trace_register_category(kApplicationName);
  if (category == nullptr) ReportFault(kRegisterCategoryFaultLine);
}

}  // namespace dhcp_relay_app
