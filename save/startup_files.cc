#include "save/startup_files.h"

#include <sysrepo.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>
#include <vector>

#include "base/system_error.h"
#include "save/durable_file.h"

namespace save {
namespace {

namespace fs = std::filesystem;

constexpr char kSuffix[] = ".startup";
constexpr char kModels[] = "sysrepo.startup";  // what is installed; written with the models only

constexpr char kProbe[] = "dhcp-relay-saved.room";
// More than it takes: the files have every default written out and marked.
constexpr std::size_t kBytesPerByte = 4;

fs::path Directory() { return fs::path(sr_get_repo_path()) / "data"; }

// None where the datastore keeps its data elsewhere than in files.
std::vector<fs::path> StartupFiles() {
  std::vector<fs::path> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(Directory(), error)) {
    const fs::path& path = entry.path();
    if (path.extension() == kSuffix && path.filename() != kModels) files.push_back(path);
  }
  return files;
}

bool IsWhole(const fs::path& path) {
  std::ifstream file(path);
  return nlohmann::json::accept(file);
}

// In place: owner and permissions of the file are the module's.
void Reset(const fs::path& path) {
  std::ofstream file(path, std::ios::trunc);
  file << "{}";
  file.close();
  if (!file) base::ThrowSystemError("cannot write " + path.string());
  Sync(path);
}

}  // namespace

void RequireRoomForStartupFiles(std::size_t bytes) {
  std::error_code error;
  if (!fs::is_directory(Directory(), error)) return;
  RequireRoom(Directory() / kProbe, kBytesPerByte * bytes);
}

void SyncStartupFiles() {
  const std::vector<fs::path> files = StartupFiles();
  for (const fs::path& path : files) Sync(path);
  if (!files.empty()) Sync(Directory());
}

int ResetDamagedStartupFiles() {
  int count = 0;
  for (const fs::path& path : StartupFiles()) {
    if (IsWhole(path)) continue;
    Reset(path);
    ++count;
  }
  return count;
}

}  // namespace save
