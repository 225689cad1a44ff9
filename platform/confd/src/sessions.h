#ifndef CONFD_SRC_SESSIONS_H_
#define CONFD_SRC_SESSIONS_H_

#include "confd/session.h"

namespace confd {

// The snapshot of an open session, null when `sock` is none.
Snapshot* FindSession(int sock);

}  // namespace confd

#endif  // CONFD_SRC_SESSIONS_H_
