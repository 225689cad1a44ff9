#include "log.h"

#include <zlog.h>

#include "vxmw/vxmw.h"

namespace dhcp_manager {
namespace {

constexpr int kErrorLevel = 12;

zlog_category_t* category = nullptr;

}  // namespace

void StartLog(const char* name) { category = vxmw_trace_register_category(name); }

void LogError(const std::string& text) {
  zlog(category, __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, __LINE__,
       kErrorLevel, "%s", text.c_str());
}

}  // namespace dhcp_manager
