// Double of the logging library. Every line is kept, whether its level is on or not, since the
// caller's guards are what is tested. A line of a null category ends the process, as it does with
// the library, unless that does not run: it is ignored then.

#ifndef TESTS_FAKES_FAKE_ZLOG_H_
#define TESTS_FAKES_FAKE_ZLOG_H_

#include <zlog.h>

#include <set>
#include <string>
#include <vector>

namespace fakes {

struct LogLine {
  zlog_category_t* category = nullptr;
  std::string source_path;
  std::string function;
  long line = 0;
  int level = 0;
  std::string text;
};

class Zlog {
 public:
  static Zlog& Get();
  void Reset() { *this = Zlog(); }

  void Enable(int level) { enabled_.insert(level); }
  bool IsEnabled(int level) const { return enabled_.contains(level); }

  bool is_running = true;

  std::vector<LogLine> lines;

  // Each "<level> <function>: <text>".
  std::vector<std::string> Texts() const;

  // Levels and categories that were asked about.
  std::vector<int> asked_levels;
  std::set<zlog_category_t*> asked_categories;

  // Lines whose path or function length was not that of its text.
  int wrong_lengths = 0;

 private:
  std::set<int> enabled_;
};

}  // namespace fakes

#endif  // TESTS_FAKES_FAKE_ZLOG_H_
