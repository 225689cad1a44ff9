// The connection to the sysrepo datastore.

#ifndef VXCONFD_DATASTORE_H_
#define VXCONFD_DATASTORE_H_

#include <sysrepo.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "confd/session.h"
#include "confd_cdb.h"

namespace vxconfd {

// A call of the datastore failed: what it was for, and the datastore's own word on it.
class DatastoreError : public std::runtime_error {
 public:
  DatastoreError(const std::string& what_failed, int code, sr_session_ctx_t* session = nullptr);
};

struct ConnectionDeleter {
  void operator()(sr_conn_ctx_t* connection) const { sr_disconnect(connection); }
};
struct SessionDeleter {
  void operator()(sr_session_ctx_t* session) const { sr_session_stop(session); }
};
using ConnectionPtr = std::unique_ptr<sr_conn_ctx_t, ConnectionDeleter>;
using SessionPtr = std::unique_ptr<sr_session_ctx_t, SessionDeleter>;

// Used by one thread. Throws DatastoreError.
class Datastore : public std::enable_shared_from_this<Datastore> {
 public:
  Datastore();

  // Throws when a schema path (without keys or prefixes) is not known to the installed models.
  void RequireModelOf(const char* path) const;

  // A consistent copy of the whole database. Commits wait for it only while it is being made.
  std::shared_ptr<confd::Snapshot> TakeSnapshot(cdb_db_type database);

 private:
  std::shared_ptr<const ly_ctx> AcquireContext();

  ConnectionPtr connection_;
  SessionPtr session_;
};

}  // namespace vxconfd

#endif  // VXCONFD_DATASTORE_H_
