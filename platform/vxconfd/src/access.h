// What the process's account may do with the modules of the datastore.
//
// The datastore leaves out of what it hands out, without a word, what the account may not read. To
// the adapter it would look like data that was deleted.

#ifndef PLATFORM_VXCONFD_SRC_ACCESS_H_
#define PLATFORM_VXCONFD_SRC_ACCESS_H_

#include <sysrepo.h>

#include <set>
#include <string>
#include <vector>

#include "platform/vxconfd/src/datastore_error.h"

struct ly_ctx;

namespace vxconfd {

using Modules = std::set<std::string>;

// The account may not do all that it has to. The text names account, modules and datastores.
class AccessDenied : public DatastoreError {
 public:
  using DatastoreError::DatastoreError;
};

struct Access {
  enum class Right { kRead, kSubscribe };

  std::string module;
  sr_datastore_t datastore = SR_DS_RUNNING;
  Right right = Right::kRead;
};

// What following the running data of these modules takes: they are subscribed to and read, and so
// is what their leaves refer to. `models` are the installed ones.
std::vector<Access> AccessToFollow(const ly_ctx* models, const Modules& modules);

// Throws AccessDenied, with all that is missing, unless the account has all of this.
void RequireAccess(sr_conn_ctx_t* connection, const std::vector<Access>& needed);

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_ACCESS_H_
