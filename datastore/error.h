// The one place where failures of the datastore become exceptions.

#ifndef DATASTORE_ERROR_H_
#define DATASTORE_ERROR_H_

#include <sysrepo.h>

#include <stdexcept>
#include <string>

namespace datastore {

// A call of the datastore failed: what it was for, and the datastore's own text about it.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws Error unless `code` is SR_ERR_OK. The text of the session's latest error is preferred to
// the general one of the code.
void Check(int code, const std::string& what_failed, sr_session_ctx_t* session = nullptr);

}  // namespace datastore

#endif  // DATASTORE_ERROR_H_
