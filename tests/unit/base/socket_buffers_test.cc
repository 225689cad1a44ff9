#include "base/socket_buffers.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>

#include "base/descriptor.h"

namespace {

constexpr int kSmall = 64 * 1024;
constexpr int kLarge = 16 * 1024 * 1024;

int BufferSize(int fd, int option) {
  int size = 0;
  socklen_t length = sizeof(size);
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, option, &size, &length), 0);
  return size / 2;  // the kernel doubles what it is asked for
}

int Limit(const std::string& name) {
  int limit = 0;
  std::ifstream("/proc/sys/net/core/" + name) >> limit;
  return limit;
}

class SocketBuffersTest : public ::testing::Test {
 protected:
  base::Descriptor socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(SocketBuffersTest, SetsEachBufferAlone) {
  const int send_buffer = BufferSize(socket_.get(), SO_SNDBUF);
  base::SetReceiveBuffer(socket_.get(), kSmall);
  EXPECT_EQ(BufferSize(socket_.get(), SO_RCVBUF), kSmall);
  EXPECT_EQ(BufferSize(socket_.get(), SO_SNDBUF), send_buffer);
  base::SetSendBuffer(socket_.get(), kSmall / 2);
  EXPECT_EQ(BufferSize(socket_.get(), SO_SNDBUF), kSmall / 2);
  EXPECT_EQ(BufferSize(socket_.get(), SO_RCVBUF), kSmall);
}

TEST_F(SocketBuffersTest, GoesAtLeastToTheSystemsLimit) {
  base::SetReceiveBuffer(socket_.get(), kLarge);
  EXPECT_GE(BufferSize(socket_.get(), SO_RCVBUF), std::min(kLarge, Limit("rmem_max")));
  base::SetSendBuffer(socket_.get(), kLarge);
  EXPECT_GE(BufferSize(socket_.get(), SO_SNDBUF), std::min(kLarge, Limit("wmem_max")));
}

TEST_F(SocketBuffersTest, ARefusalIsNoError) { EXPECT_NO_THROW(base::SetSendBuffer(-1, kSmall)); }

}  // namespace
