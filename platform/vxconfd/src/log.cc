#include "platform/vxconfd/src/log.h"

#include <zlog.h>

#include <cstring>
#include <utility>

#include "base/severity.h"

namespace vxconfd {

Log::Log(zlog_category_t* category, std::string application)
    : category_(category), application_(std::move(application)) {}

void Log::Error(const std::string& text, const base::SourceLine& where) const {
  Write(base::kErrorLevel, text, where);
}

void Log::Trace(const std::string& text, const base::SourceLine& where) const {
  Write(base::kTraceLevel, text, where);
}

void Log::Write(int level, const std::string& text, const base::SourceLine& where) const {
  if (category_ == nullptr) return;
  zlog(category_, where.file, std::strlen(where.file), where.function, std::strlen(where.function),
       where.line, level, "%s: %s", application_.c_str(), text.c_str());
}

}  // namespace vxconfd
