// The adapter's log lines, in the category that its owner chose.

#ifndef PLATFORM_VXCONFD_SRC_LOG_H_
#define PLATFORM_VXCONFD_SRC_LOG_H_

#include <string>

#include <vxmw/vxmw.h>

#include "base/service/log.h"

namespace vxconfd {

// Every line begins with the application's name. Without a category nothing is written.
class Log {
 public:
  Log(zlog_category_t* category, std::string application);

  void Error(const std::string& text,
             const base::SourceLine& where = base::SourceLine::Current()) const;
  void Trace(const std::string& text,
             const base::SourceLine& where = base::SourceLine::Current()) const;

 private:
  void Write(int level, const std::string& text, const base::SourceLine& where) const;

  zlog_category_t* category_;
  std::string application_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_LOG_H_
