// What the doubles of the platform were asked to do, all of them in one list, so that a test can
// see in which order things happened across libraries.

#ifndef TESTS_FAKES_JOURNAL_H_
#define TESTS_FAKES_JOURNAL_H_

#include <string>
#include <string_view>
#include <vector>

namespace fakes {

class Journal {
 public:
  static Journal& Get();

  void Add(std::string entry);
  void Clear();

  // Every entry also goes to standard error, where a death test can match it.
  void SetEcho(bool echo) { echo_ = echo; }

  const std::vector<std::string>& entries() const { return entries_; }
  std::vector<std::string> StartingWith(std::string_view prefix) const;
  std::vector<std::string> StartingWithAny(const std::vector<std::string_view>& prefixes) const;

 private:
  std::vector<std::string> entries_;
  bool echo_ = false;
};

}  // namespace fakes

#endif  // TESTS_FAKES_JOURNAL_H_
