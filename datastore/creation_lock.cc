#include "datastore/creation_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysrepo.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "datastore/error.h"

namespace datastore {
namespace {

bool Lock(int fd) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  while (fcntl(fd, F_SETLKW, &lock) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace

CreationLock::CreationLock() {
  const std::string path = std::string(sr_get_repo_path()) + "/sr_main_lock";
  fd_ = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  // The library makes the file when it connects for the first time ever.
  if (fd_ < 0 && errno == ENOENT) return;
  if (fd_ >= 0 && Lock(fd_)) return;
  const std::string reason = std::strerror(errno);
  if (fd_ >= 0) close(fd_);
  throw Error("cannot lock " + path + ": " + reason);
}

CreationLock::~CreationLock() {
  if (fd_ >= 0) close(fd_);
}

}  // namespace datastore
