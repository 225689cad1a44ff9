#include "datastore/shared_memory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysrepo.h>

#include <fstream>

namespace datastore {
namespace {

// Numbers of this start of the machine: those of the next may be the same, times of birth too where
// the clock starts anew.
std::string BootId() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string id;
  file >> id;
  return id;
}

}  // namespace

std::optional<SharedMemory> FindSharedMemory() {
  const std::string path = std::string(sr_get_shm_path()) + "/" + sr_get_shm_prefix() + "_main";
  struct statx status = {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &status) != 0) return std::nullopt;
  return SharedMemory{.device = std::uint64_t{status.stx_dev_major} << 32U | status.stx_dev_minor,
                      .inode = status.stx_ino,
                      .born_seconds = status.stx_btime.tv_sec,
                      .born_nanoseconds = status.stx_btime.tv_nsec};
}

std::string Name(const SharedMemory& memory) {
  return BootId() + ":" + std::to_string(memory.device) + ":" + std::to_string(memory.inode) + ":" +
         std::to_string(memory.born_seconds) + "." + std::to_string(memory.born_nanoseconds);
}

}  // namespace datastore
