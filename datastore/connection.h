// A connection to the sysrepo datastore.

#ifndef DATASTORE_CONNECTION_H_
#define DATASTORE_CONNECTION_H_

#include <sysrepo.h>

#include <memory>
#include <optional>
#include <string>

#include "datastore/library_paths.h"
#include "datastore/shared_memory.h"

namespace datastore {

class Connection;

struct ConnectionDeleter {
  void operator()(sr_conn_ctx_t* connection) const { sr_disconnect(connection); }
};
struct SessionDeleter {
  void operator()(sr_session_ctx_t* session) const;

  const Connection* connection = nullptr;
};
struct DataDeleter {
  void operator()(sr_data_t* data) const { sr_release_data(data); }
};
using ConnectionPtr = std::unique_ptr<sr_conn_ctx_t, ConnectionDeleter>;
using SessionPtr = std::unique_ptr<sr_session_ctx_t, SessionDeleter>;
using DataPtr = std::unique_ptr<sr_data_t, DataDeleter>;

// Used by one thread. Throws Error.
class Connection {
 public:
  // Connects to a datastore that is there; makes none.
  Connection();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  sr_conn_ctx_t* get() const { return connection_.get(); }

  // For one user: a session is never used by two at once. It ends before its connection.
  SessionPtr OpenSession(sr_datastore_t database) const;

  // That of the datastore that was connected to.
  const SharedMemory& shared_memory() const { return shared_memory_; }

  // Why the datastore has to be left: its shared memory, a part of that, or its repository is not
  // the one that was connected to. The connection still answers then, with data that nobody else
  // sees. Empty while all is there.
  std::string LossReason() const;

 private:
  friend class Leaving;

  bool HasSharedMemory() const { return FindSharedMemory() == shared_memory_; }
  bool HasRepository() const;

  std::optional<FileId> repository_;
  SharedMemory shared_memory_;
  ConnectionPtr connection_;
};

// To be alive while a part of a connection ends. What is lost is hidden from the library then: what
// took its place has other users' files under the same names, and a lock that a process held when
// it was killed is free only where no process counts as alive.
class Leaving {
 public:
  explicit Leaving(const Connection& connection);
  Leaving(const Leaving&) = delete;
  Leaving& operator=(const Leaving&) = delete;

 private:
  std::optional<HiddenRepository> repository_;
  std::optional<SharedMemoryDirectory> shared_memory_;
};

}  // namespace datastore

#endif  // DATASTORE_CONNECTION_H_
