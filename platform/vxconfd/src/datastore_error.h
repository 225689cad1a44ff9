// Failures of the datastore, under the adapter's own names.

#ifndef PLATFORM_VXCONFD_SRC_DATASTORE_ERROR_H_
#define PLATFORM_VXCONFD_SRC_DATASTORE_ERROR_H_

#include "datastore/error.h"

namespace vxconfd {

using DatastoreError = datastore::Error;
using datastore::Check;

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_DATASTORE_ERROR_H_
