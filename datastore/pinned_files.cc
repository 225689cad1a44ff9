#include "datastore/pinned_files.h"

#include <sysrepo.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <system_error>

#include "datastore/error.h"

namespace datastore {
namespace {

namespace fs = std::filesystem;

// Hidden, so that nobody means it who removes the files of the datastore.
std::string DirectoryPrefix() { return std::string(".") + sr_get_shm_prefix() + "."; }

std::string NextDirectory() {
  static std::atomic<int> next = 0;
  return std::string(sr_get_shm_path()) + "/" + DirectoryPrefix() + std::to_string(getpid()) + "." +
         std::to_string(next++);
}

std::string MakeDirectory() {
  std::string directory = NextDirectory();
  std::error_code error;
  fs::remove_all(directory, error);  // of an earlier process of this number
  if (!fs::create_directory(directory, error)) {
    throw Error("cannot make " + directory + ": " + error.message());
  }
  return directory;
}

}  // namespace

PinnedFiles::PinnedFiles(const std::vector<std::string>& names) : directory_(MakeDirectory()) {
  for (const std::string& name : names) complete_ = Pin(name) && complete_;
}

PinnedFiles::~PinnedFiles() {
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

bool PinnedFiles::Pin(const std::string& name) const {
  const fs::path pinned = fs::path(directory_) / name;
  std::error_code error;
  fs::create_hard_link(fs::path(sr_get_shm_path()) / name, pinned, error);
  if (error) return false;
  if (fs::file_size(pinned, error) > 0) return true;
  fs::remove(pinned, error);
  return false;
}

void RemovePinnedFilesOfOthers() {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(sr_get_shm_path(), error)) {
    if (entry.path().filename().string().starts_with(DirectoryPrefix())) {
      fs::remove_all(entry.path(), error);
    }
  }
}

}  // namespace datastore
