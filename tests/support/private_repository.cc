#include "tests/support/private_repository.h"

#include <signal.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tests {
namespace {

namespace fs = std::filesystem;

const std::string kPrefix = "vxi";

void RemoveSharedMemoryOf(const std::string& process_id) {
  const std::string prefix = kPrefix + process_id;
  for (const auto& file : fs::directory_iterator("/dev/shm")) {
    const std::string name = file.path().filename();
    if (name.starts_with(prefix + "_") || name.starts_with(prefix + "sub_") ||
        name.starts_with("." + prefix + ".")) {
      fs::remove_all(file.path());
    }
  }
}

// What tests that crashed left behind: directories that are named after a process that is gone.
void RemoveLeftovers() {
  for (const auto& entry : fs::directory_iterator(fs::temp_directory_path())) {
    const std::string name = entry.path().filename();
    if (!name.starts_with(kPrefix + ".")) continue;
    const std::string process_id = name.substr(kPrefix.size() + 1);
    const char* end = process_id.data() + process_id.size();
    pid_t pid = 0;
    if (std::from_chars(process_id.data(), end, pid).ptr != end) continue;
    if (pid <= 0 || kill(pid, 0) == 0) continue;
    RemoveSharedMemoryOf(process_id);
    std::error_code ignored;  // another test may be removing it, too
    fs::remove_all(entry.path(), ignored);
  }
}

void Run(const std::string& command) {
  if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

}  // namespace

PrivateRepository::PrivateRepository() {
  RemoveLeftovers();
  const std::string process_id = std::to_string(getpid());
  directory_ = fs::temp_directory_path() / (kPrefix + "." + process_id);
  fs::remove_all(directory_);
  RemoveSharedMemoryOf(process_id);
  fs::create_directories(directory_);
  setenv("SYSREPO_REPOSITORY_PATH", (directory_ / "sysrepo").c_str(), 1);
  setenv("SYSREPO_SHM_PREFIX", (kPrefix + process_id).c_str(), 1);
  setenv("DHCP_MANAGER_DIR", (directory_ / "run").c_str(), 1);
  setenv("VXMW_STATE_DIR", directory_.c_str(), 1);
  setenv("PATH", (VX_TOOLS_DIR ":" + std::string(std::getenv("PATH"))).c_str(), 1);
}

PrivateRepository::~PrivateRepository() {
  RemoveSharedMemory();
  fs::remove_all(directory_);
}

std::string PrivateRepository::Faults() const {
  std::ifstream file(directory_ / "faults.jsonl");
  return {std::istreambuf_iterator<char>(file), {}};
}

void PrivateRepository::RemoveSharedMemory() { RemoveSharedMemoryOf(std::to_string(getpid())); }

fs::path PrivateRepository::Write(const std::string& name, const std::string& text) const {
  fs::path file = directory_ / name;
  std::ofstream(file) << text;
  return file;
}

void PrivateRepository::InstallModels() const {
  Run(VX_SOURCE_DIR "/scripts/install-models " VX_YANG_DIR " >/dev/null");
}

void PrivateRepository::InstallModelsWithConfiguration(const std::string& json) const {
  const fs::path file = Write("initial.json", json);
  Run(VX_SOURCE_DIR "/scripts/install-models " VX_YANG_DIR " " + file.string() + " >/dev/null");
}

void PrivateRepository::InstallModel(const std::string& name, const std::string& yang) const {
  const fs::path file = Write(name + ".yang", yang);
  Run("sysrepoctl -s " VX_YANG_DIR " -i " + file.string() + " >/dev/null");
}

void PrivateRepository::Edit(const std::string& json) const {
  const fs::path file = Write("edit.json", json);
  Run("sysrepocfg --edit=" + file.string() + " -d running -f json");
}

}  // namespace tests
