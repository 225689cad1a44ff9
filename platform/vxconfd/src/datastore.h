// The connection to the sysrepo datastore.

#ifndef PLATFORM_VXCONFD_SRC_DATASTORE_H_
#define PLATFORM_VXCONFD_SRC_DATASTORE_H_

#include <sysrepo.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <confd/session.h>
#include <confd_cdb.h>
#include <vxmw/event.h>

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
struct DataDeleter {
  void operator()(sr_data_t* data) const { sr_release_data(data); }
};
using ConnectionPtr = std::unique_ptr<sr_conn_ctx_t, ConnectionDeleter>;
using SessionPtr = std::unique_ptr<sr_session_ctx_t, SessionDeleter>;
using DataPtr = std::unique_ptr<sr_data_t, DataDeleter>;

// Used by one thread. Throws DatastoreError.
class Datastore : public std::enable_shared_from_this<Datastore> {
 public:
  explicit Datastore(vxmw_t* mw);

  // The module that a schema path (without keys or prefixes) begins in. Throws when the installed
  // models do not know the path.
  std::string ModuleOf(const char* path) const;

  // For a user of its own: a session is never used by two at once.
  SessionPtr OpenSession() const;

  // A consistent copy of the whole database. Commits wait for it only while it is being made.
  std::shared_ptr<confd::Snapshot> TakeSnapshot(cdb_db_type database);

  // While this lives, all sessions on the running database share one copy of it: a commit that is
  // being delivered keeps the database from changing.
  class SharedSnapshot {
   public:
    explicit SharedSnapshot(Datastore& datastore) : datastore_(datastore) {
      datastore_.share_snapshot_ = true;
    }
    ~SharedSnapshot() {
      datastore_.share_snapshot_ = false;
      datastore_.shared_snapshot_.reset();
    }
    SharedSnapshot(const SharedSnapshot&) = delete;
    SharedSnapshot& operator=(const SharedSnapshot&) = delete;

   private:
    Datastore& datastore_;
  };

 private:
  std::shared_ptr<confd::Snapshot> Copy(sr_session_ctx_t* session, cdb_db_type database);
  // Gives a copy back in a later turn of the loop: that takes a while, and nobody shall wait for
  // it.
  void Retire(DataPtr data);
  std::shared_ptr<const ly_ctx> AcquireContext();

  // Reads come from a cache that the datastore keeps in this process. A commit makes it stale, and
  // to fill it and copy from it takes longer than to read past it.
  ConnectionPtr connection_;
  SessionPtr session_;
  ConnectionPtr uncached_connection_;
  SessionPtr uncached_session_;
  bool share_snapshot_ = false;
  std::shared_ptr<confd::Snapshot> shared_snapshot_;
  DataPtr retired_;
  vxmw::TimerSource retire_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_DATASTORE_H_
