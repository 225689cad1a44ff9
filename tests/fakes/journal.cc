#include "tests/fakes/journal.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace fakes {

// Never destroyed: static objects of the code under test may still use it at exit.
Journal& Journal::Get() {
  static Journal* const journal = new Journal;
  return *journal;
}

void Journal::Add(std::string entry) {
  if (echo_) std::fprintf(stderr, "%s\n", entry.c_str());
  entries_.push_back(std::move(entry));
}

void Journal::Clear() {
  entries_.clear();
  echo_ = false;
}

std::vector<std::string> Journal::StartingWith(std::string_view prefix) const {
  return StartingWithAny({prefix});
}

std::vector<std::string> Journal::StartingWithAny(
    const std::vector<std::string_view>& prefixes) const {
  std::vector<std::string> found;
  for (const std::string& entry : entries_) {
    const bool wanted = std::any_of(prefixes.begin(), prefixes.end(), [&](std::string_view prefix) {
      return entry.starts_with(prefix);
    });
    if (wanted) found.push_back(entry);
  }
  return found;
}

}  // namespace fakes
