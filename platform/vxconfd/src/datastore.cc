#include "platform/vxconfd/src/datastore.h"

#include <libyang/libyang.h>

#include <utility>
#include <vector>

#include "platform/vxconfd/src/schema_path.h"

namespace vxconfd {
namespace {

// Says when data was changed last, in the operational datastore.
constexpr const char* kMonitoringModule = "sysrepo-monitoring";

sr_datastore_t ToSysrepo(cdb_db_type database) {
  switch (database) {
    case CDB_STARTUP:
      return SR_DS_STARTUP;
    case CDB_OPERATIONAL:
      return SR_DS_OPERATIONAL;
    case CDB_RUNNING:
      break;
  }
  return SR_DS_RUNNING;
}

// The installed models, held as long as this lives.
class Models {
 public:
  explicit Models(sr_conn_ctx_t* connection)
      : connection_(connection), context_(sr_acquire_context(connection)) {
    if (context_ == nullptr) Check(SR_ERR_LY, "cannot get the datastore's models");
  }
  ~Models() { sr_release_context(connection_); }
  Models(const Models&) = delete;
  Models& operator=(const Models&) = delete;

  const ly_ctx* context() const { return context_; }

 private:
  sr_conn_ctx_t* connection_;
  const ly_ctx* context_;
};

std::string Union(const Modules& modules) {
  std::string xpath;
  for (const std::string& module : modules) {
    xpath += (xpath.empty() ? "/" : " | /") + module + ":*";
  }
  return xpath;
}

void RequireReadable(sr_conn_ctx_t* connection, const Modules& modules) {
  const Models installed(connection);
  std::vector<Access> needed;
  for (const std::string& module : modules) needed.push_back({.module = module});
  RequireAccess(connection, needed);
}

DataTreePtr RequireAllowed(DataTreePtr copy) {
  if (!copy) throw DatastoreError("cannot read the datastore: its models have changed");
  return copy;
}

}  // namespace

Datastore::Datastore() : session_(connection_.OpenSession(SR_DS_RUNNING)) {}

std::string Datastore::ModuleOf(const char* path) const {
  const Models models(connection_.get());
  const lysc_node* top = FindTopOf(models.context(), path);
  if (top == nullptr) throw DatastoreError(std::string("no installed model has ") + path);
  return top->module->name;
}

void Datastore::RequireAccessToFollow(const Modules& modules) const {
  const Models models(connection_.get());
  auto needed = AccessToFollow(models.context(), modules);
  needed.push_back({.module = kMonitoringModule, .datastore = SR_DS_OPERATIONAL});
  RequireAccess(connection_.get(), needed);
}

ContextPtr Datastore::CopyInstalledModels() const {
  return CopyModels(Models(connection_.get()).context());
}

DataPtr Datastore::Read(sr_datastore_t database, const std::string& xpath,
                        sr_get_options_t options) {
  sr_session_ctx_t* const session = session_.get();
  Check(sr_session_switch_ds(session, database), "cannot read the datastore", session);
  sr_data_t* data = nullptr;
  Check(sr_get_data(session, xpath.c_str(), 0, 0, options, &data), "cannot read the datastore",
        session);
  return DataPtr(data);
}

DataPtr Datastore::ReadModules(const Modules& modules) {
  RequireReadable(connection_.get(), modules);
  return Read(SR_DS_RUNNING, Union(modules), SR_GET_NO_FILTER);
}

DataTreePtr Datastore::ReadRunning(const Modules& modules, const ContextPtr& context) {
  const DataPtr data = ReadModules(modules);
  return RequireAllowed(CopyData(context, data ? data->tree : nullptr));
}

DataTreePtr Datastore::ReadRunningUnlessEqual(const Modules& modules, const DataTree& held) {
  const DataPtr data = ReadModules(modules);
  lyd_node* none = nullptr;
  lyd_node** const siblings = data ? &data->tree : &none;
  if (HasEqualData(held, *siblings)) return nullptr;
  return RequireAllowed(MoveData(held.context(), siblings));
}

std::string Datastore::LastModified(const Modules& modules) {
  std::string times;
  for (const std::string& module : modules) {
    const std::string path = "/" + std::string(kMonitoringModule) + ":sysrepo-state/module[name='" +
                             module + "']/datastore[name='ietf-datastores:running']/last-modified";
    const DataPtr data = Read(SR_DS_OPERATIONAL, path, 0);
    lyd_node* leaf = nullptr;
    if (data) lyd_find_path(data->tree, path.c_str(), 0, &leaf);
    times += (leaf != nullptr ? lyd_get_value(leaf) : "") + std::string(" ");
  }
  return times;
}

std::shared_ptr<confd::Snapshot> Datastore::TakeSnapshot(cdb_db_type database) {
  DataPtr data = Read(ToSysrepo(database), "/*", 0);
  if (!data) return std::make_shared<confd::Snapshot>(CopyInstalledModels(), nullptr);
  // The data holds the context until it is released, and needs the connection for that.
  const std::shared_ptr<sr_data_t> owner(
      data.release(), [self = shared_from_this()](sr_data_t* held) { sr_release_data(held); });
  return std::make_shared<confd::Snapshot>(
      std::shared_ptr<const ly_ctx>(owner, LYD_CTX(owner->tree)),
      std::shared_ptr<const lyd_node>(owner, owner->tree));
}

}  // namespace vxconfd
