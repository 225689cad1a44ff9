// The directories in which the datastore library looks for its files.
//
// The library asks two functions of its own for them whenever it needs a file. Functions of the
// same names here stand in their place, for the library, too; so a thread can show it other
// directories for a while.

#ifndef DATASTORE_LIBRARY_PATHS_H_
#define DATASTORE_LIBRARY_PATHS_H_

#include <string>

namespace datastore {

// While it lives, the library finds no repository in this thread: it removes nothing there, and
// takes every other connection for one of a process that is gone.
class HiddenRepository {
 public:
  HiddenRepository();
  ~HiddenRepository();
  HiddenRepository(const HiddenRepository&) = delete;
  HiddenRepository& operator=(const HiddenRepository&) = delete;
};

// While it lives, the library has its shared memory in `directory` in this thread, or nowhere.
class SharedMemoryDirectory {
 public:
  SharedMemoryDirectory();
  explicit SharedMemoryDirectory(const std::string& directory);
  ~SharedMemoryDirectory();
  SharedMemoryDirectory(const SharedMemoryDirectory&) = delete;
  SharedMemoryDirectory& operator=(const SharedMemoryDirectory&) = delete;
};

// While it lives, the library has its own shared memory again in this thread.
class OwnSharedMemory {
 public:
  OwnSharedMemory();
  ~OwnSharedMemory();
  OwnSharedMemory(const OwnSharedMemory&) = delete;
  OwnSharedMemory& operator=(const OwnSharedMemory&) = delete;

 private:
  std::string shown_;
};

// Throws Error if the library does not ask the functions here, because of the way it was linked.
void RequireLibraryPaths();

}  // namespace datastore

#endif  // DATASTORE_LIBRARY_PATHS_H_
