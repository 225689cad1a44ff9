// The connection to the sysrepo datastore.

#ifndef PLATFORM_VXCONFD_SRC_DATASTORE_H_
#define PLATFORM_VXCONFD_SRC_DATASTORE_H_

#include <sysrepo.h>

#include <cstdint>
#include <memory>
#include <string>

#include <confd/session.h>
#include <confd_cdb.h>

#include "datastore/connection.h"
#include "platform/vxconfd/src/access.h"
#include "platform/vxconfd/src/data_tree.h"
#include "platform/vxconfd/src/datastore_error.h"

namespace vxconfd {

using datastore::DataPtr;

// Used by one thread. Throws DatastoreError.
class Datastore : public std::enable_shared_from_this<Datastore> {
 public:
  // Connects to a datastore that is there; makes none.
  Datastore();
  Datastore(const Datastore&) = delete;
  Datastore& operator=(const Datastore&) = delete;

  // The module that a schema path (without keys or prefixes) begins in. Throws when the installed
  // models do not know the path.
  std::string ModuleOf(const char* path) const;

  // Throws AccessDenied unless the account may follow the modules' running data.
  void RequireAccessToFollow(const Modules& modules) const;

  const datastore::Connection& connection() const { return connection_; }

  // A context of its own with the installed models.
  ContextPtr CopyInstalledModels() const;

  // Changes whenever the installed models do.
  std::uint32_t models_id() const { return sr_get_content_id(connection_.get()); }

  // The running data of some modules, in a context that CopyInstalledModels made. Throws
  // AccessDenied when the account may not read one of them.
  DataTreePtr ReadRunning(const Modules& modules, const ContextPtr& context);

  // The same, in the context of `held`; null when it equals `held`, default flags included. Needs
  // less memory than ReadRunning, but the nodes are scattered, so that reading them takes longer.
  DataTreePtr ReadRunningUnlessEqual(const Modules& modules, const DataTree& held);

  // When the running data of the modules was changed last, in a text to compare with another.
  std::string LastModified(const Modules& modules);

  // A consistent copy of a whole database. While it lives, nobody can install models.
  std::shared_ptr<confd::Snapshot> TakeSnapshot(cdb_db_type database);

 private:
  DataPtr ReadModules(const Modules& modules);
  DataPtr Read(sr_datastore_t database, const std::string& xpath, sr_get_options_t options);

  datastore::Connection connection_;
  datastore::SessionPtr session_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_DATASTORE_H_
