// A directory of a test's own, gone when the test ends.

#ifndef TESTS_UNIT_SAVE_TEMPORARY_DIRECTORY_H_
#define TESTS_UNIT_SAVE_TEMPORARY_DIRECTORY_H_

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "base/system_error.h"

namespace tests {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "vxsave.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) base::ThrowSystemError("mkdtemp");
    path_ = name;
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline std::string Content(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace tests

#endif  // TESTS_UNIT_SAVE_TEMPORARY_DIRECTORY_H_
