#include "datastore/shared_memory.h"

#include <sysrepo.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace datastore {
namespace {

namespace fs = std::filesystem;

// The data of modules; the names may go on.
constexpr std::array<std::string_view, 3> kData = {".running", ".candidate", ".operational"};

// Numbers of this start of the machine: those of the next may be the same, times of birth too where
// the clock starts anew.
std::string BootId() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string id;
  file >> id;
  return id;
}

std::string PathOf(const std::string& name) { return std::string(sr_get_shm_path()) + "/" + name; }

void Remove(const std::string& name) {
  std::error_code ignored;  // those who made it may remove it, or root
  fs::remove(PathOf(name), ignored);
}

bool IsData(const std::string& name) {
  return std::any_of(kData.begin(), kData.end(), [&name](std::string_view kind) {
    return name.find(kind) != std::string::npos;
  });
}

}  // namespace

std::vector<std::string> SharedMemoryFiles() {
  const std::string prefix = sr_get_shm_prefix();
  return {prefix + "_main", prefix + "_mod", prefix + "_ext"};
}

std::optional<SharedMemory> FindSharedMemory() {
  const std::vector<std::string> names = SharedMemoryFiles();
  const std::optional<FileId> main = Identify(PathOf(names[0]));
  const std::optional<FileId> modules = Identify(PathOf(names[1]));
  const std::optional<FileId> extra = Identify(PathOf(names[2]));
  if (!main || !modules || !extra) return std::nullopt;
  return SharedMemory{.main = *main, .modules = *modules, .extra = *extra};
}

bool HasMainFile() { return Identify(PathOf(SharedMemoryFiles().front())).has_value(); }

std::vector<std::string> FindFiles(const std::string& beginning) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(sr_get_shm_path(), error)) {
    const std::string name = entry.path().filename();
    if (name.starts_with(sr_get_shm_prefix() + beginning)) names.push_back(name);
  }
  return names;
}

void RemoveRemains() {
  for (const std::string& name : FindFiles("sub_")) Remove(name);
  for (const std::string& name : FindFiles("_")) {
    if (IsData(name)) Remove(name);
  }
}

std::string Name(const SharedMemory& memory) {
  const FileId& main = memory.main;
  return BootId() + ":" + std::to_string(main.device) + ":" + std::to_string(main.inode) + ":" +
         std::to_string(main.born_seconds) + "." + std::to_string(main.born_nanoseconds);
}

}  // namespace datastore
