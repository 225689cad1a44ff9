#include "tests/fakes/fake_zlog.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/fakes/journal.h"

namespace fakes {
namespace {

// As the library, which ignores such a line only while it does not run.
bool IsIgnored(const zlog_category_t* category) {
  if (category != nullptr) return false;
  if (!Zlog::Get().is_running) return true;
  std::fprintf(stderr, "zlog: a line of a null category\n");
  std::abort();
}

std::string Summary(const LogLine& line) {
  return std::to_string(line.level) + " " + line.function + ": " + line.text;
}

}  // namespace

Zlog& Zlog::Get() {
  static Zlog* const zlog = new Zlog;
  return *zlog;
}

std::vector<std::string> Zlog::Texts() const {
  std::vector<std::string> texts;
  for (const LogLine& line : lines) texts.push_back(Summary(line));
  return texts;
}

}  // namespace fakes

extern "C" {

void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func,
          size_t funclen, long line, int level, const char* format, ...) {
  if (fakes::IsIgnored(category)) return;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(static_cast<std::size_t>(length), '\0');
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  va_end(arguments);
  const fakes::LogLine entry{category, file, func, line, level, std::move(text)};
  fakes::Zlog& log = fakes::Zlog::Get();
  if (std::strlen(file) != filelen || std::strlen(func) != funclen) ++log.wrong_lengths;
  log.lines.push_back(entry);
  fakes::Journal::Get().Add("zlog " + fakes::Summary(entry));
}

int zlog_level_enabled(zlog_category_t* category, int level) {
  fakes::Zlog& log = fakes::Zlog::Get();
  log.asked_levels.push_back(level);
  log.asked_categories.insert(category);
  return category != nullptr && log.IsEnabled(level) ? 1 : 0;
}

}  // extern "C"
