#include "protocol/saving/save_status.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/system_error.h"

namespace dhcp_relay::saving {
namespace {

namespace fs = std::filesystem;

// Whoever may read the lock can take it and so keep a saver from starting.
constexpr mode_t kMode = 0640;

constexpr std::array kNames{
    std::pair{SaveState::kNotRunning, "not-running"}, std::pair{SaveState::kSaving, "saving"},
    std::pair{SaveState::kSaved, "saved"}, std::pair{SaveState::kFailed, "failed"},
    std::pair{SaveState::kUnknown, "unknown"}};

fs::path LockPath(const fs::path& directory) { return directory / "lock"; }
fs::path StatusPath(const fs::path& directory) { return directory / "status"; }

struct flock WholeFile(short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

base::Descriptor Open(const fs::path& path, int flags) {
  return base::Descriptor(open(path.c_str(), flags | O_CLOEXEC, kMode));
}

SaveStatus Unknown(const fs::path& path) {
  return {SaveState::kUnknown, path.string() + ": " + std::generic_category().message(errno)};
}

// The first line is the state, the rest the reason.
SaveStatus Parse(std::istream& file) {
  std::string name;
  std::getline(file, name);
  for (const auto& [state, known] : kNames) {
    if (name == known) return {state, {std::istreambuf_iterator<char>(file), {}}};
  }
  return {SaveState::kUnknown, "no state in the saver's file"};
}

}  // namespace

fs::path RuntimeDirectory() {
  const char* const directory = std::getenv("DHCP_RELAY_SAVED_DIR");
  return directory != nullptr && *directory != '\0' ? directory : "/run/dhcp-relay-saved";
}

std::string Name(SaveState state) {
  for (const auto& [known, name] : kNames) {
    if (known == state) return name;
  }
  return {};
}

SaveStatus ReadSaveStatus(const fs::path& directory) {
  const fs::path lock_path = LockPath(directory);
  const base::Descriptor lock = Open(lock_path, O_RDONLY);
  if (!lock && errno == ENOENT) return {};
  // Asks who holds the lock and takes none: a reader keeps no saver from starting.
  struct flock holder = WholeFile(F_RDLCK);
  if (!lock || fcntl(lock.get(), F_OFD_GETLK, &holder) != 0) return Unknown(lock_path);
  if (holder.l_type == F_UNLCK) return {};
  std::ifstream file(StatusPath(directory));
  if (!file) return {SaveState::kSaving, {}};  // has only just started
  return Parse(file);
}

StatusFile::StatusFile(fs::path directory) : directory_(std::move(directory)) {
  fs::create_directories(directory_);
  const fs::path path = LockPath(directory_);
  lock_ = Open(path, O_RDWR | O_CREAT);
  if (!lock_) base::ThrowSystemError("cannot open " + path.string());
  struct flock mine = WholeFile(F_WRLCK);
  if (fcntl(lock_.get(), F_OFD_SETLK, &mine) != 0) {
    if (errno != EAGAIN && errno != EACCES) base::ThrowSystemError("cannot lock " + path.string());
    throw std::runtime_error("another saver holds " + path.string());
  }
  fs::remove(StatusPath(directory_));  // of one that was killed
}

void StatusFile::Publish(const SaveStatus& status) {
  if (published_ == status) return;
  const fs::path path = StatusPath(directory_);
  const fs::path next = path.string() + ".new";
  errno = 0;
  std::ofstream file(next, std::ios::trunc);
  file << Name(status.state) << '\n' << status.reason;
  file.close();
  if (!file) base::ThrowSystemError("cannot write " + next.string());
  fs::rename(next, path);
  published_ = status;
}

}  // namespace dhcp_relay::saving
