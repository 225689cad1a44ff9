// A state directory of the test's own, and what faults leave in it.

#ifndef TESTS_UNIT_PLATFORM_VXMIDWARE_FAULT_DIRECTORY_H_
#define TESTS_UNIT_PLATFORM_VXMIDWARE_FAULT_DIRECTORY_H_

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

namespace tests {

inline std::vector<std::string> Lines(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// What standard error gets of a fault with the text "kept".
inline std::string Told() {
  ::testing::internal::CaptureStderr();
  vxmw_gen_fault(0, "f", "p", 1, "kept");
  return ::testing::internal::GetCapturedStderr();
}

class FaultDirectory : public ::testing::Test {
 protected:
  FaultDirectory() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    setenv("VXMW_STATE_DIR", directory_.c_str(), 1);
  }
  ~FaultDirectory() override {
    unsetenv("VXMW_STATE_DIR");
    std::filesystem::remove_all(directory_);
  }

  std::filesystem::path File() const { return directory_ / "faults.jsonl"; }
  std::filesystem::path Older() const { return directory_ / "faults.jsonl.1"; }

  std::filesystem::path directory_;
};

}  // namespace tests

#endif  // TESTS_UNIT_PLATFORM_VXMIDWARE_FAULT_DIRECTORY_H_
