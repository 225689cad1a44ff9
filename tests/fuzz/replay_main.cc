// Runs a fuzz target over the files of the directories given, and over every beginning of each, in
// a build without a fuzzer.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Read(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void Replay(const Bytes& bytes) {
  for (std::size_t size = 0; size <= bytes.size(); ++size) {
    // In memory of its own size, so that a sanitizer notices a read behind it.
    const Bytes beginning(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    LLVMFuzzerTestOneInput(beginning.data(), beginning.size());
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::printf("%s\n", entry.path().c_str());
      std::fflush(stdout);
      Replay(Read(entry.path()));
      ++files;
    }
  }
  std::printf("%zu files\n", files);
  return files > 0 ? 0 : 1;
}
