// The shared memory in which the datastore keeps its running data.

#ifndef DATASTORE_SHARED_MEMORY_H_
#define DATASTORE_SHARED_MEMORY_H_

#include <cstdint>
#include <optional>
#include <string>

namespace datastore {

// Tells one life of the shared memory from the next: it is made anew, from the startup data, after
// it was removed.
struct SharedMemory {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t born_seconds = 0;  // the numbers above are used again
  std::uint32_t born_nanoseconds = 0;

  bool operator==(const SharedMemory&) const = default;
};

// Of the datastore that the environment names; nothing when there is none.
std::optional<SharedMemory> FindSharedMemory();

// As a word, which also tells one start of the machine from the next.
std::string Name(const SharedMemory& memory);

}  // namespace datastore

#endif  // DATASTORE_SHARED_MEMORY_H_
