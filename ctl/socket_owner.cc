#include "ctl/socket_owner.h"

#include <fstream>
#include <system_error>

namespace relayctl {
namespace {

namespace fs = std::filesystem;

// "self" and its like stand for processes that are there under their numbers, too.
bool IsNumber(const std::string& name) {
  return name.find_first_not_of("0123456789") == std::string::npos;
}

bool HasOpen(const fs::path& process, const std::string& socket) {
  // Processes may end meanwhile, and those of other users may not be looked into.
  std::error_code error;
  fs::directory_iterator entry(process / "fd", error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code gone;
    if (fs::read_symlink(entry->path(), gone) == socket) return true;
  }
  return false;
}

std::string NameOf(const fs::path& process) {
  std::string name;
  std::getline(std::ifstream(process / "comm") >> std::ws, name);
  return name;
}

}  // namespace

std::string FindSocketOwner(std::uint32_t inode, const fs::path& proc) {
  const std::string socket = "socket:[" + std::to_string(inode) + "]";
  std::error_code error;
  fs::directory_iterator entry(proc, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const std::string number = entry->path().filename().string();
    if (!IsNumber(number) || !HasOpen(entry->path(), socket)) continue;
    return NameOf(entry->path()) + " (process " + number + ")";
  }
  return {};
}

}  // namespace relayctl
