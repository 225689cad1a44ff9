// The pool on the kernel's sockets, on the loopback device and a port of the test's own.

#include "dhcp_manager/datapath/vrf_socket_pool.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "dhcp_manager/datapath/socket_option.h"

namespace {

using base::Descriptor;
using dhcp_manager::VrfSocketPool;

constexpr std::array kPassAll{sock_filter{.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = 65535}};
constexpr int kPreparedBuffer = 20'000;
constexpr int kOtherBuffer = 10'000;

Descriptor MakeUdp() {
  return Descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Whether the port could be had.
bool Bind(const Descriptor& fd, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

std::uint16_t PortOf(const Descriptor& fd) {
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  EXPECT_EQ(getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  return ntohs(address.sin_port);
}

std::uint16_t FreePort() {
  const Descriptor fd = MakeUdp();
  EXPECT_TRUE(Bind(fd, 0));
  return PortOf(fd);
}

template <typename Value = int>
Value OptionOf(const Descriptor& fd, int option) {
  Value value{};
  socklen_t size = sizeof(value);
  EXPECT_EQ(getsockopt(fd.get(), SOL_SOCKET, option, &value, &size), 0);
  return value;
}

class VrfSocketPoolTest : public ::testing::Test {
 protected:
  // The sockets that are prepared have a larger buffer than the others.
  Descriptor Make() {
    Descriptor fd = MakeUdp();
    const int size = made_++ < kPrepared ? kPreparedBuffer : kOtherBuffer;
    EXPECT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)), 0);
    return fd;
  }
  static bool HasLargeBuffer(const Descriptor& fd) {
    return OptionOf(fd, SO_RCVBUF) == 2 * kPreparedBuffer;
  }
  // The error of an attempt to take a socket.
  int ErrorOf(const std::string& device) {
    try {
      pool_.Take(device);
      return 0;
    } catch (const std::system_error& error) {
      return error.code().value();
    }
  }
  void SendToPort() const {
    const Descriptor sender = MakeUdp();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port_);
    EXPECT_EQ(sendto(sender.get(), "x", 1, 0, reinterpret_cast<const sockaddr*>(&address),
                     sizeof(address)),
              1);
  }
  static bool Receives(const Descriptor& fd) {
    char byte = 0;
    return recv(fd.get(), &byte, 1, MSG_DONTWAIT) == 1;
  }

  static constexpr int kPrepared = 2;

  const std::uint16_t port_ = FreePort();
  int made_ = 0;
  VrfSocketPool pool_{kPrepared, port_, [this] { return Make(); }};
};

TEST_F(VrfSocketPoolTest, ASocketIsBoundToThePortOnItsDevice) {
  const Descriptor red = pool_.Take("lo");
  EXPECT_EQ(PortOf(red), port_);
  EXPECT_EQ(OptionOf(red, SO_BINDTOIFINDEX), 1);
  const Descriptor none = pool_.Take("");
  EXPECT_EQ(PortOf(none), port_);
  EXPECT_EQ(OptionOf(none, SO_BINDTOIFINDEX), 0);
}

TEST_F(VrfSocketPoolTest, WhatIsGivenBackHasItsBufferForTheNext) {
  for (int i = 0; i < 3 * kPrepared; ++i) {
    Descriptor fd = pool_.Take(i % 2 == 0 ? "" : "lo");
    EXPECT_TRUE(HasLargeBuffer(fd)) << i;
    EXPECT_EQ(OptionOf(fd, SO_BINDTOIFINDEX), i % 2) << i;
    pool_.GiveBack(std::move(fd));
  }
}

TEST_F(VrfSocketPoolTest, OneBeyondThosePreparedIsMadeAndClosed) {
  std::vector<Descriptor> taken;
  taken.reserve(kPrepared);
  for (int i = 0; i < kPrepared; ++i) taken.push_back(pool_.Take("lo"));
  Descriptor more = pool_.Take("lo");
  EXPECT_FALSE(HasLargeBuffer(more));
  pool_.GiveBack(std::move(more));
  pool_.GiveBack(std::move(taken.back()));
  EXPECT_TRUE(HasLargeBuffer(pool_.Take("lo")));
}

TEST_F(VrfSocketPoolTest, AnAttemptThatFailsCostsNoBuffer) {
  std::optional<Descriptor> taker(MakeUdp());
  ASSERT_TRUE(Bind(*taker, port_));
  for (int i = 0; i < 3 * kPrepared; ++i) EXPECT_EQ(ErrorOf(""), EADDRINUSE);
  EXPECT_EQ(ErrorOf("nowhere"), ENODEV);
  taker.reset();
  EXPECT_TRUE(HasLargeBuffer(pool_.Take("")));
}

TEST_F(VrfSocketPoolTest, ASocketThatIsUsedAgainDoesNotTakeThePortOfAnother) {
  Descriptor fd = pool_.Take("lo");
  const Descriptor taker = MakeUdp();
  constexpr int kOn = 1;
  ASSERT_EQ(setsockopt(taker.get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof(kOn)), 0);
  ASSERT_TRUE(Bind(taker, port_));
  constexpr int kOff = 0;
  ASSERT_EQ(setsockopt(taker.get(), SOL_SOCKET, SO_REUSEADDR, &kOff, sizeof(kOff)), 0);
  pool_.GiveBack(std::move(fd));
  EXPECT_EQ(ErrorOf("lo"), EADDRINUSE);
}

// A program that has the port on one device, without sharing it.
TEST_F(VrfSocketPoolTest, TheDefaultVrfGetsThePortWhereAnotherHasItOnADeviceOnly) {
  const Descriptor taker = MakeUdp();
  // No device of the test's own is needed: the kernel takes any index.
  constexpr int kDevice = 1'000'000;
  ASSERT_EQ(setsockopt(taker.get(), SOL_SOCKET, SO_BINDTOIFINDEX, &kDevice, sizeof(kDevice)), 0);
  ASSERT_TRUE(Bind(taker, port_));
  EXPECT_EQ(ErrorOf(""), 0);
}

TEST_F(VrfSocketPoolTest, NothingPassesWhatIsTakenBeforeItsFilterIsThere) {
  const Descriptor fd = pool_.Take("");
  SendToPort();
  EXPECT_FALSE(Receives(fd));
  dhcp_manager::AttachFilter(fd.get(), kPassAll);
  SendToPort();
  EXPECT_TRUE(Receives(fd));
}

TEST_F(VrfSocketPoolTest, WhatOneVrfReceivedIsNotThereForTheNext) {
  Descriptor fd = pool_.Take("");
  dhcp_manager::AttachFilter(fd.get(), kPassAll);
  SendToPort();
  SendToPort();
  pool_.GiveBack(std::move(fd));
  SendToPort();
  EXPECT_FALSE(Receives(pool_.Take("")));
}

TEST_F(VrfSocketPoolTest, OneThatWaitsTakesNothingFromTheOthers) {
  pool_.GiveBack(pool_.Take("lo"));
  const Descriptor fd = MakeUdp();
  constexpr int kOn = 1;
  ASSERT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof(kOn)), 0);
  ASSERT_TRUE(Bind(fd, port_));
  SendToPort();
  EXPECT_TRUE(Receives(fd));
}

TEST_F(VrfSocketPoolTest, ThePortIsThereForOthersOnceItIsReleased) {
  pool_.GiveBack(pool_.Take(""));
  EXPECT_FALSE(Bind(MakeUdp(), port_));
  pool_.ReleasePort();
  EXPECT_TRUE(Bind(MakeUdp(), port_));
}

}  // namespace
