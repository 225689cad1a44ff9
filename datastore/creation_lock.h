// Keeps others from making shared memory.

#ifndef DATASTORE_CREATION_LOCK_H_
#define DATASTORE_CREATION_LOCK_H_

namespace datastore {

// The lock that the library takes while it connects. It is this process's, too, so that the library
// can connect meanwhile; that frees it.
class CreationLock {
 public:
  // Waits as long as the library does, for other processes that connect. Throws Error.
  CreationLock();
  ~CreationLock();
  CreationLock(const CreationLock&) = delete;
  CreationLock& operator=(const CreationLock&) = delete;

 private:
  int fd_;
};

}  // namespace datastore

#endif  // DATASTORE_CREATION_LOCK_H_
