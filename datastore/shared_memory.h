// The shared memory in which the datastore keeps its running data.

#ifndef DATASTORE_SHARED_MEMORY_H_
#define DATASTORE_SHARED_MEMORY_H_

#include <optional>
#include <string>
#include <vector>

#include "datastore/file_id.h"

namespace datastore {

// Tells one life of the shared memory from the next: it is made anew, from the startup data, after
// it was removed. Without one of these files nobody can use it.
struct SharedMemory {
  FileId main;
  FileId modules;
  FileId extra;

  bool operator==(const SharedMemory&) const = default;
};

// The names of these files.
std::vector<std::string> SharedMemoryFiles();

// Of the datastore that the environment names; nothing when there is none, or when a part of it was
// removed.
std::optional<SharedMemory> FindSharedMemory();

// Whether there is a datastore for the library: it makes no other while there is the main file.
bool HasMainFile();

// The files of the datastore whose names begin with `beginning`, after what all begin with.
std::vector<std::string> FindFiles(const std::string& beginning);

// What is left of shared memory without its main file. It keeps everybody from making it anew.
void RemoveRemains();

// As a word, which also tells one start of the machine from the next.
std::string Name(const SharedMemory& memory);

}  // namespace datastore

#endif  // DATASTORE_SHARED_MEMORY_H_
