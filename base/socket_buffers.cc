#include "base/socket_buffers.h"

#include <sys/socket.h>

namespace base {
namespace {

void SetBuffer(int fd, int forced, int limited, int size) {
  if (setsockopt(fd, SOL_SOCKET, forced, &size, sizeof(size)) != 0) {
    setsockopt(fd, SOL_SOCKET, limited, &size, sizeof(size));
  }
}

}  // namespace

void SetReceiveBuffer(int fd, int size) { SetBuffer(fd, SO_RCVBUFFORCE, SO_RCVBUF, size); }

void SetSendBuffer(int fd, int size) { SetBuffer(fd, SO_SNDBUFFORCE, SO_SNDBUF, size); }

}  // namespace base
