// Sizes of the kernel's buffers of a socket.

#ifndef BASE_SOCKET_BUFFERS_H_
#define BASE_SOCKET_BUFFERS_H_

namespace base {

// Ask for a buffer of `size` bytes: beyond the system's limit with CAP_NET_ADMIN, else up to it. A
// smaller buffer only makes loss under bursts likelier, so a refusal is no error.
void SetReceiveBuffer(int fd, int size);
void SetSendBuffer(int fd, int size);

}  // namespace base

#endif  // BASE_SOCKET_BUFFERS_H_
