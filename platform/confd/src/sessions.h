#ifndef PLATFORM_CONFD_SRC_SESSIONS_H_
#define PLATFORM_CONFD_SRC_SESSIONS_H_

#include <confd/session.h>

namespace confd {

// The snapshot of an open session, null when `sock` is none.
Snapshot* FindSession(int sock);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_SESSIONS_H_
