#include "save/sysrepo_store.h"

#include <libyang/libyang.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "save/startup_files.h"

namespace save {
namespace {

constexpr char kTimes[] =
    "/sysrepo-monitoring:sysrepo-state/module/datastore[name='ietf-datastores:running']/"
    "last-modified";

struct TextDeleter {
  void operator()(char* text) const { std::free(text); }
};
struct TreeDeleter {
  void operator()(lyd_node* tree) const { lyd_free_all(tree); }
};

// Defaults that nobody has set are left out.
std::string Print(const lyd_node* tree) {
  char* text = nullptr;
  if (lyd_print_mem(&text, tree, LYD_JSON, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK) !=
      LY_SUCCESS) {
    throw datastore::Error("cannot print the configuration");
  }
  const std::unique_ptr<char, TextDeleter> owner(text);
  return text != nullptr ? text : "{}";
}

// The installed models, which stay as they are while this lives.
class Models {
 public:
  explicit Models(sr_conn_ctx_t* connection)
      : connection_(connection), context_(sr_acquire_context(connection)) {
    if (context_ == nullptr) datastore::Check(SR_ERR_LY, "cannot get the datastore's models");
  }
  ~Models() { sr_release_context(connection_); }
  Models(const Models&) = delete;
  Models& operator=(const Models&) = delete;

  const ly_ctx* get() const { return context_; }

 private:
  sr_conn_ctx_t* connection_;
  const ly_ctx* context_;
};

bool HasConfiguration(const lys_module& module) {
  if (module.implemented == 0 || std::string_view(module.name) == "sysrepo") return false;
  for (const lysc_node* node = module.compiled->data; node != nullptr; node = node->next) {
    if ((node->flags & LYS_CONFIG_W) != 0) return true;
  }
  return false;
}

void RequireAccess(sr_conn_ctx_t* connection, const char* module) {
  for (const sr_datastore_t database : {SR_DS_RUNNING, SR_DS_STARTUP}) {
    int read = 0;
    int write = 0;
    datastore::Check(sr_check_module_ds_access(connection, module, database, &read, &write),
                     std::string("cannot find out the rights on the module ") + module);
    if (read == 0 || write == 0) {
      throw datastore::Error(std::string("this account may not read and write the module ") +
                             module);
    }
  }
}

// The datastore leaves out what an account may not read, as if it were not there.
void RequireAccessToAll(sr_conn_ctx_t* connection) {
  const Models models(connection);
  std::uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(models.get(), &index)) {
    if (HasConfiguration(*module)) RequireAccess(connection, module->name);
  }
}

// libyang writes what it refuses to standard error if it is not told otherwise.
class QuietYang {
 public:
  QuietYang() { ly_temp_log_options(&options_); }
  ~QuietYang() { ly_temp_log_options(nullptr); }
  QuietYang(const QuietYang&) = delete;
  QuietYang& operator=(const QuietYang&) = delete;

 private:
  std::uint32_t options_ = LY_LOSTORE_LAST;
};

lyd_node* Parse(const Models& models, const std::string& configuration) {
  const QuietYang quiet;
  lyd_node* tree = nullptr;
  if (lyd_parse_data_mem(models.get(), configuration.c_str(), LYD_JSON,
                         LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0,
                         &tree) != LY_SUCCESS) {
    throw ConfigurationRefused(std::string("the models refuse the configuration: ") +
                               ly_last_logmsg());
  }
  return tree;
}

}  // namespace

SysrepoStore::SysrepoStore()
    : running_(connection_.OpenSession(SR_DS_RUNNING)),
      startup_(connection_.OpenSession(SR_DS_STARTUP)),
      operational_(connection_.OpenSession(SR_DS_OPERATIONAL)) {
  RequirePresence();
  RequireAccessToAll(connection_.get());
}

std::string SysrepoStore::Generation() const {
  RequirePresence();
  return Name(connection_.shared_memory());
}

// Without shared memory or repository the connection goes on to answer, with data that is nobody's.
void SysrepoStore::RequirePresence() const {
  const std::string loss = connection_.LossReason();
  if (!loss.empty()) throw DatastoreLost(loss);
}

// A datastore that is lost while it is used fails in many ways.
void SysrepoStore::Check(int code, const char* what_failed, sr_session_ctx_t* session) const {
  if (code != SR_ERR_OK) RequirePresence();
  datastore::Check(code, what_failed, session);
}

datastore::DataPtr SysrepoStore::Get(sr_session_ctx_t* session, const char* xpath,
                                     sr_get_options_t options) const {
  sr_data_t* data = nullptr;
  Check(sr_get_data(session, xpath, 0, 0, options, &data), "cannot read the datastore", session);
  return datastore::DataPtr(data);
}

std::string SysrepoStore::LastModified() {
  RequirePresence();
  const datastore::DataPtr data = Get(operational_.get(), kTimes, 0);
  return std::to_string(sr_get_content_id(connection_.get())) + (data ? Print(data->tree) : "");
}

std::string SysrepoStore::Read(sr_session_ctx_t* session) const {
  const datastore::DataPtr data = Get(session, "/*", SR_GET_NO_FILTER);
  std::string text = Print(data ? data->tree : nullptr);
  RequirePresence();
  return text;
}

std::string SysrepoStore::Running() { return Read(running_.get()); }

std::string SysrepoStore::Startup() { return Read(startup_.get()); }

void SysrepoStore::Replace(sr_session_ctx_t* session, const std::string& configuration,
                           const char* what) {
  RequirePresence();
  const Models models(connection_.get());
  const int code = sr_replace_config(session, nullptr, Parse(models, configuration), 0);
  if (code == SR_ERR_OK) return;
  try {
    Check(code, what, session);
  } catch (const datastore::Error& error) {
    if (code == SR_ERR_VALIDATION_FAILED) throw ConfigurationRefused(error.what());
    throw;
  }
}

void SysrepoStore::SetRunning(const std::string& configuration) {
  Replace(running_.get(), configuration, "cannot restore the running datastore");
}

void SysrepoStore::SetStartup(const std::string& configuration) {
  RequireRoomForStartupFiles(configuration.size());
  if (startup_suspect_) ResetDamagedStartupFiles();
  startup_suspect_ = true;
  Replace(startup_.get(), configuration, "cannot write the startup datastore");
  SyncStartupFiles();
  startup_suspect_ = false;
}

}  // namespace save
