#include "datastore/library_paths.h"

#include <dlfcn.h>
#include <sysrepo.h>

#include "datastore/error.h"

namespace {

using PathFunction = const char*();

// Nothing can be made there.
constexpr char kNowhere[] = "/proc/self/nowhere";

// What the calling thread shows the library instead of its own; empty for its own.
std::string& ShownRepository() {
  thread_local std::string path;
  return path;
}

std::string& ShownSharedMemory() {
  thread_local std::string path;
  return path;
}

PathFunction* InLibrary(const char* name) {
  return reinterpret_cast<PathFunction*>(dlsym(RTLD_NEXT, name));
}

bool IsAsked(const char* name, PathFunction* function) {
  return reinterpret_cast<PathFunction*>(dlsym(RTLD_DEFAULT, name)) == function;
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] const char* sr_get_repo_path() {
  static PathFunction* const library = InLibrary("sr_get_repo_path");
  const std::string& shown = ShownRepository();
  return shown.empty() ? library() : shown.c_str();
}

[[gnu::visibility("default")]] const char* sr_get_shm_path() {
  static PathFunction* const library = InLibrary("sr_get_shm_path");
  const std::string& shown = ShownSharedMemory();
  return shown.empty() ? library() : shown.c_str();
}
}

namespace datastore {

HiddenRepository::HiddenRepository() { ShownRepository() = kNowhere; }
HiddenRepository::~HiddenRepository() { ShownRepository().clear(); }

SharedMemoryDirectory::SharedMemoryDirectory() : SharedMemoryDirectory(kNowhere) {}
SharedMemoryDirectory::SharedMemoryDirectory(const std::string& directory) {
  ShownSharedMemory() = directory;
}
SharedMemoryDirectory::~SharedMemoryDirectory() { ShownSharedMemory().clear(); }

OwnSharedMemory::OwnSharedMemory() { shown_.swap(ShownSharedMemory()); }
OwnSharedMemory::~OwnSharedMemory() { shown_.swap(ShownSharedMemory()); }

void RequireLibraryPaths() {
  if (IsAsked("sr_get_repo_path", sr_get_repo_path) &&
      IsAsked("sr_get_shm_path", sr_get_shm_path)) {
    return;
  }
  // A function of the library, so that every program with these functions is linked with it.
  Check(SR_ERR_UNSUPPORTED, "this program is linked in an order that hides its paths from sysrepo");
}

}  // namespace datastore
