#include "datastore/error.h"

namespace datastore {
namespace {

std::string Describe(int code, sr_session_ctx_t* session) {
  const sr_error_info_t* info = nullptr;
  if (session != nullptr && sr_session_get_error(session, &info) == SR_ERR_OK && info != nullptr &&
      info->err_count > 0) {
    return info->err[0].message;
  }
  return sr_strerror(code);
}

}  // namespace

void Check(int code, const std::string& what_failed, sr_session_ctx_t* session) {
  if (code != SR_ERR_OK) throw Error(what_failed + ": " + Describe(code, session));
}

}  // namespace datastore
