#include "tests/integration/platform/vxconfd/committer.h"

#include <libyang/libyang.h>

#include <stdexcept>

namespace tests {
namespace {

void Require(int code, const std::string& what) {
  if (code != SR_ERR_OK) throw std::runtime_error(what + ": " + sr_strerror(code));
}

}  // namespace

Committer::Committer() {
  sr_conn_ctx_t* connection = nullptr;
  Require(sr_connect(SR_CONN_DEFAULT, &connection), "sr_connect");
  connection_.reset(connection);
  Require(sr_session_start(connection, SR_DS_RUNNING, &session_), "sr_session_start");
}

void Committer::Set(const std::string& path, const std::string& value) {
  const char* text = value.empty() ? nullptr : value.c_str();
  Require(sr_set_item_str(session_, path.c_str(), text, nullptr, 0), path);
}

void Committer::Delete(const std::string& path) {
  Require(sr_delete_item(session_, path.c_str(), 0), path);
}

void Committer::Edit(const std::string& json) {
  const ly_ctx* context = sr_acquire_context(connection_.get());
  lyd_node* edit = nullptr;
  lyd_parse_data_mem(context, json.c_str(), LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &edit);
  const int code = edit != nullptr ? sr_edit_batch(session_, edit, "merge") : SR_ERR_LY;
  lyd_free_all(edit);
  sr_release_context(connection_.get());
  Require(code, json);
}

void Committer::Commit(std::chrono::milliseconds wait) {
  Require(sr_apply_changes(session_, static_cast<std::uint32_t>(wait.count())), "commit");
}

std::string Committer::Read(const std::string& path) {
  sr_data_t* data = nullptr;
  if (sr_get_node(session_, path.c_str(), 0, &data) != SR_ERR_OK) return {};
  std::string value = lyd_get_value(data->tree);
  sr_release_data(data);
  return value;
}

}  // namespace tests
