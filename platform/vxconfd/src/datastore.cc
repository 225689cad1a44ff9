#include "platform/vxconfd/src/datastore.h"

#include <libyang/libyang.h>

#include <chrono>
#include <string_view>
#include <system_error>
#include <utility>

namespace vxconfd {
namespace {

std::string Describe(int code, sr_session_ctx_t* session) {
  const sr_error_info_t* info = nullptr;
  if (session != nullptr && sr_session_get_error(session, &info) == SR_ERR_OK && info != nullptr &&
      info->err_count > 0) {
    return info->err[0].message;
  }
  return sr_strerror(code);
}

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

const lysc_node* FindChild(const lysc_node* parent, const lysc_module* module,
                           std::string_view name) {
  const lysc_node* child = nullptr;
  while ((child = lys_getnext(child, parent, module, 0)) != nullptr) {
    if (name == child->name) return child;
  }
  return nullptr;
}

const lysc_node* FindTopLevel(const ly_ctx* context, std::string_view name) {
  std::uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
    if (module->compiled == nullptr) continue;
    if (const lysc_node* node = FindChild(nullptr, module->compiled, name)) return node;
  }
  return nullptr;
}

// The top-level node that the path begins with; null when the path is not known.
const lysc_node* FindTopOf(const ly_ctx* context, std::string_view path) {
  const lysc_node* top = nullptr;
  const lysc_node* node = nullptr;
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    node = node == nullptr ? FindTopLevel(context, name) : FindChild(node, nullptr, name);
    if (node == nullptr) return nullptr;
    if (top == nullptr) top = node;
    path.remove_prefix(name.size());
  }
  return top;
}

ConnectionPtr Connect(sr_conn_options_t options) {
  sr_conn_ctx_t* connection = nullptr;
  const int code = sr_connect(options, &connection);
  if (code != SR_ERR_OK) {
    throw DatastoreError(std::string("cannot connect to the datastore in ") + sr_get_repo_path(),
                         code);
  }
  return ConnectionPtr(connection);
}

SessionPtr OpenSessionOf(const ConnectionPtr& connection) {
  sr_session_ctx_t* session = nullptr;
  const int code = sr_session_start(connection.get(), SR_DS_RUNNING, &session);
  if (code != SR_ERR_OK) throw DatastoreError("cannot open a datastore session", code);
  return SessionPtr(session);
}

}  // namespace

DatastoreError::DatastoreError(const std::string& what_failed, int code, sr_session_ctx_t* session)
    : std::runtime_error(what_failed + ": " + Describe(code, session)) {}

Datastore::Datastore(vxmw_t* mw)
    : connection_(Connect(SR_CONN_CACHE_RUNNING)),
      session_(OpenSession()),
      uncached_connection_(Connect(SR_CONN_DEFAULT)),
      uncached_session_(OpenSessionOf(uncached_connection_)),
      retire_(mw, [this] { retired_.reset(); }) {}

SessionPtr Datastore::OpenSession() const { return OpenSessionOf(connection_); }

std::shared_ptr<const ly_ctx> Datastore::AcquireContext() {
  const ly_ctx* context = sr_acquire_context(connection_.get());
  if (context == nullptr) throw DatastoreError("cannot get the datastore's models", SR_ERR_LY);
  return {context, [self = shared_from_this()](const ly_ctx*) {
            sr_release_context(self->connection_.get());
          }};
}

std::string Datastore::ModuleOf(const char* path) const {
  const ly_ctx* context = sr_acquire_context(connection_.get());
  if (context == nullptr) throw DatastoreError("cannot get the datastore's models", SR_ERR_LY);
  const lysc_node* top = FindTopOf(context, path);
  std::string module = top != nullptr ? top->module->name : "";
  sr_release_context(connection_.get());
  if (module.empty()) {
    throw DatastoreError(std::string("no installed model has ") + path, SR_ERR_NOT_FOUND);
  }
  return module;
}

std::shared_ptr<confd::Snapshot> Datastore::TakeSnapshot(cdb_db_type database) {
  if (!share_snapshot_ || database != CDB_RUNNING) return Copy(session_.get(), database);
  if (!shared_snapshot_) shared_snapshot_ = Copy(uncached_session_.get(), database);
  return shared_snapshot_;
}

std::shared_ptr<confd::Snapshot> Datastore::Copy(sr_session_ctx_t* session, cdb_db_type database) {
  int code = sr_session_switch_ds(session, ToSysrepo(database));
  sr_data_t* data = nullptr;
  if (code == SR_ERR_OK) code = sr_get_data(session, "/*", 0, 0, 0, &data);
  if (code != SR_ERR_OK) throw DatastoreError("cannot read the datastore", code, session);
  if (data == nullptr) return std::make_shared<confd::Snapshot>(AcquireContext(), nullptr);

  // The data holds the context, too, until it is released.
  const std::shared_ptr<sr_data_t> owner(
      data, [self = shared_from_this()](sr_data_t* held) { self->Retire(DataPtr(held)); });
  return std::make_shared<confd::Snapshot>(
      std::shared_ptr<const ly_ctx>(owner, LYD_CTX(data->tree)),
      std::shared_ptr<const lyd_node>(owner, data->tree));
}

void Datastore::Retire(DataPtr data) {
  try {
    retire_.Arm(std::chrono::microseconds(0));
    retired_ = std::move(data);
  } catch (const std::system_error&) {
    data.reset();  // then somebody does wait
  }
}

}  // namespace vxconfd
