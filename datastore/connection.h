// A connection to the sysrepo datastore.

#ifndef DATASTORE_CONNECTION_H_
#define DATASTORE_CONNECTION_H_

#include <sysrepo.h>

#include <memory>
#include <optional>
#include <string>

#include "datastore/shared_memory.h"

namespace datastore {

class Connection;

struct ConnectionDeleter {
  void operator()(sr_conn_ctx_t* connection) const { sr_disconnect(connection); }
};
// Abandons the session when the datastore of its connection is gone.
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

  const std::optional<SharedMemory>& shared_memory() const { return shared_memory_; }

  // True when the shared memory of the datastore is not the one that was connected to. The
  // connection still answers then, with data that nobody else sees.
  bool IsGone() const { return FindSharedMemory() != shared_memory_; }

  // That in words; empty while it is there.
  std::string LossReason() const;

 private:
  ConnectionPtr connection_;
  std::optional<SharedMemory> shared_memory_;
};

}  // namespace datastore

#endif  // DATASTORE_CONNECTION_H_
