// Runs of datagrams over the loopback device.

#include "dhcp_manager/datapath/segmenting_socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/udp.h>
#include <poll.h>

#include <array>
#include <utility>
#include <vector>

#include "dhcp_manager/datapath/batch.h"
#include "tests/unit/dhcp_manager/datapath/scripted_socket.h"

namespace {

using dhcp_manager::Inbox;
using dhcp_manager::KernelSocket;
using dhcp_manager::Outbox;
using dhcp_manager::SegmentingSocket;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using tests::Bytes;

base::Descriptor Bound() {
  base::Descriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr = tests::Ip("127.0.0.1").to_in_addr();
  EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  return fd;
}

void Set(const KernelSocket& socket, int level, int option) {
  constexpr int kOn = 1;
  EXPECT_EQ(setsockopt(socket.fd(), level, option, &kOn, sizeof(kOn)), 0);
}

class Server {
 public:
  sockaddr_in address() const {
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(socket_.fd(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    return address;
  }

  // Receives a run as the one datagram that it was sent as.
  void ReceiveRunsWhole() { Set(socket_, SOL_UDP, UDP_GRO); }

  std::vector<Bytes> Receive(std::size_t count) {
    std::vector<Bytes> received;
    while (received.size() < count && Readable(30'000)) Collect(received);
    EXPECT_FALSE(Readable(0));
    return received;
  }

 private:
  bool Readable(int limit) const {
    pollfd readable{.fd = socket_.fd(), .events = POLLIN, .revents = 0};
    return poll(&readable, 1, limit) == 1;
  }
  void Collect(std::vector<Bytes>& received) {
    const std::size_t count = inbox_.Receive(socket_);
    for (std::size_t i = 0; i < count; ++i) {
      const Inbox::Message message = inbox_.Get(i);
      received.emplace_back(message.data, message.data + message.size);
    }
  }

  KernelSocket socket_{Bound()};
  Inbox inbox_;
};

class SegmentingSocketTest : public ::testing::Test {
 protected:
  void Add(const Bytes& bytes, const Server& server) {
    outbox_.Add(bytes.data(), bytes.size(), server.address(), done_.size());
    done_.push_back(false);
  }
  // Which of the packets were sent.
  const std::vector<bool>& Flush() {
    outbox_.Flush([this](std::size_t tag, bool sent) { done_[tag] = sent; });
    return done_;
  }

  const Bytes one_ = Bytes(300, 1);
  const Bytes two_ = Bytes(300, 2);
  const Bytes longer_ = Bytes(301, 3);
  SegmentingSocket socket_{Bound()};
  Outbox outbox_{socket_};
  std::vector<bool> done_;
  Server server_;
};

TEST_F(SegmentingSocketTest, ARunArrivesAsItsDatagrams) {
  for (const Bytes* bytes : {&one_, &two_, &one_}) Add(*bytes, server_);
  EXPECT_THAT(Flush(), ElementsAre(true, true, true));
  EXPECT_THAT(server_.Receive(3), ElementsAre(one_, two_, one_));
}

TEST_F(SegmentingSocketTest, ARunIsSentAsOne) {
  server_.ReceiveRunsWhole();
  for (int i = 0; i < 3; ++i) Add(one_, server_);
  Flush();
  EXPECT_THAT(server_.Receive(1), ElementsAre(Bytes(900, 1)));
}

TEST_F(SegmentingSocketTest, OtherSizesAndServersEndARun) {
  Server other;
  server_.ReceiveRunsWhole();
  other.ReceiveRunsWhole();
  Add(one_, server_);
  Add(two_, server_);
  Add(longer_, server_);
  Add(one_, other);
  Add(one_, server_);
  EXPECT_THAT(Flush(), Each(true));
  Bytes run = one_;
  run.insert(run.end(), two_.begin(), two_.end());
  EXPECT_THAT(server_.Receive(3), ElementsAre(run, longer_, one_));
  EXPECT_THAT(other.Receive(1), ElementsAre(one_));
}

TEST_F(SegmentingSocketTest, MoreSegmentsThanTheKernelTakesGoInSeveralRuns) {
  server_.ReceiveRunsWhole();
  for (std::size_t i = 0; i < 100; ++i) Add(one_, server_);
  EXPECT_THAT(Flush(), Each(true));
  EXPECT_THAT(server_.Receive(2), SizeIs(2));
}

TEST_F(SegmentingSocketTest, ARunNeverExceedsTheLargestDatagram) {
  server_.ReceiveRunsWhole();
  const Bytes large(9000, 4);
  for (int i = 0; i < 20; ++i) Add(large, server_);
  EXPECT_THAT(Flush(), Each(true));
  // Of seven each.
  EXPECT_THAT(server_.Receive(3), SizeIs(3));
}

TEST_F(SegmentingSocketTest, WhereARunIsRefusedItsDatagramsAreSentOneByOne) {
  server_.ReceiveRunsWhole();
  // The kernel parts no datagrams without checksums.
  Set(socket_, SOL_SOCKET, SO_NO_CHECK);
  for (int i = 0; i < 3; ++i) Add(one_, server_);
  Add(longer_, server_);
  EXPECT_THAT(Flush(), Each(true));
  EXPECT_THAT(server_.Receive(4), ElementsAre(one_, one_, one_, longer_));
}

TEST_F(SegmentingSocketTest, WhatTheKernelRefusesIsReportedByPacket) {
  const Bytes too_large(70'000);
  Add(one_, server_);
  Add(too_large, server_);
  Add(too_large, server_);
  Add(two_, server_);
  EXPECT_THAT(Flush(), ElementsAre(true, false, false, true));
  EXPECT_THAT(server_.Receive(2), ElementsAre(one_, two_));
}

}  // namespace
