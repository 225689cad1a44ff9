// The sysrepo datastore that the environment names.

#ifndef SAVE_SYSREPO_STORE_H_
#define SAVE_SYSREPO_STORE_H_

#include <string>

#include "datastore/connection.h"
#include "save/config_store.h"

namespace save {

class SysrepoStore : public ConfigStore {
 public:
  // Connects. Throws datastore::Error.
  SysrepoStore();

  std::string Generation() const override;
  std::string LastModified() override;
  std::string Running() override;
  std::string Startup() override;
  void SetRunning(const std::string& configuration) override;
  void SetStartup(const std::string& configuration) override;

 private:
  void Check(int code, const char* what_failed, sr_session_ctx_t* session) const;
  datastore::DataPtr Get(sr_session_ctx_t* session, const char* xpath,
                         sr_get_options_t options) const;
  std::string Read(sr_session_ctx_t* session) const;
  void Replace(sr_session_ctx_t* session, const std::string& configuration, const char* what);
  void RequirePresence() const;

  datastore::Connection connection_;
  datastore::SessionPtr running_;
  datastore::SessionPtr startup_;
  datastore::SessionPtr operational_;
  bool startup_suspect_ = true;  // files of it may be cut short
};

}  // namespace save

#endif  // SAVE_SYSREPO_STORE_H_
