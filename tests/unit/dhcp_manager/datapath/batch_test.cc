// Batches: what an outbox makes of what its socket accepts, and both ends over the loopback device.

#include "dhcp_manager/datapath/batch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <poll.h>
#include <sys/resource.h>

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/dhcp_manager/datapath/scripted_socket.h"

namespace {

using dhcp_manager::Inbox;
using dhcp_manager::kBatch;
using dhcp_manager::KernelSocket;
using dhcp_manager::Outbox;
using ::testing::ElementsAre;
using ::testing::Pair;
using tests::Bytes;
using tests::ScriptedSocket;

using Done = std::vector<std::pair<std::size_t, bool>>;

class OutboxTest : public ::testing::Test {
 protected:
  void Add(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) outbox_.Add("x", 1, sockaddr_in{}, 100 + i);
  }
  Done Flush() {
    Done done;
    outbox_.Flush([&done](std::size_t tag, bool sent) { done.emplace_back(tag, sent); });
    return done;
  }

  ScriptedSocket socket_;
  Outbox outbox_{socket_};
};

TEST_F(OutboxTest, SendsWhatWasAddedInOneCall) {
  Add(3);
  EXPECT_FALSE(outbox_.empty());
  EXPECT_THAT(Flush(), ElementsAre(Pair(100, true), Pair(101, true), Pair(102, true)));
  EXPECT_EQ(socket_.sends, 1U);
  EXPECT_TRUE(outbox_.empty());
}

TEST_F(OutboxTest, GivesTheSocketBytesAndAddress) {
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = 67;
  sockaddr_ll client{};
  client.sll_ifindex = 5;
  outbox_.Add("server", 6, server, 0);
  outbox_.Add("client!", 7, client, 1);
  Flush();
  ASSERT_EQ(socket_.sent.size(), 2U);
  EXPECT_EQ(socket_.sent[0].bytes, (Bytes{'s', 'e', 'r', 'v', 'e', 'r'}));
  EXPECT_EQ(socket_.sent[0].server.sin_port, 67);
  EXPECT_EQ(socket_.sent[1].bytes.size(), 7U);
  EXPECT_EQ(socket_.sent[1].client.sll_ifindex, 5);
}

TEST_F(OutboxTest, GoesOnBehindAPacketThatIsRefused) {
  socket_.refused = {1};
  Add(3);
  EXPECT_THAT(Flush(), ElementsAre(Pair(100, true), Pair(101, false), Pair(102, true)));
  EXPECT_EQ(socket_.sent.size(), 2U);
}

TEST_F(OutboxTest, GoesOnWhereTheSocketStopped) {
  socket_.accepted_at_once = 2;
  Add(5);
  const Done done = Flush();
  ASSERT_EQ(done.size(), 5U);
  for (std::size_t i = 0; i < done.size(); ++i) EXPECT_EQ(done[i], (std::pair{100 + i, true}));
  EXPECT_EQ(socket_.sends, 3U);
}

TEST_F(OutboxTest, EveryPacketRefusedIsReported) {
  socket_.refused = {0, 1, 2};
  Add(3);
  EXPECT_THAT(Flush(), ElementsAre(Pair(100, false), Pair(101, false), Pair(102, false)));
}

TEST_F(OutboxTest, IsFullAtItsCapacityAndEmptyAfterFlush) {
  Add(Outbox::kCapacity - 1);
  EXPECT_FALSE(outbox_.full());
  Add(1);
  EXPECT_TRUE(outbox_.full());
  EXPECT_EQ(Flush().size(), Outbox::kCapacity);
  EXPECT_FALSE(outbox_.full());
  EXPECT_TRUE(Flush().empty());
}

// Two UDP sockets of the kernel on the loopback device.
class LoopbackTest : public ::testing::Test {
 protected:
  LoopbackTest() : receiver_address_(AddressOf(receiver_.fd())) {}

  static KernelSocket Bound() {
    base::Descriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr = tests::Ip("127.0.0.1").to_in_addr();
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    return KernelSocket(std::move(fd));
  }
  static sockaddr_in AddressOf(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return address;
  }
  void Send(const std::vector<Bytes>& packets) {
    for (const Bytes& packet : packets) {
      outbox_.Add(packet.data(), packet.size(), receiver_address_, 0);
    }
    outbox_.Flush([](std::size_t, bool sent) { EXPECT_TRUE(sent); });
  }
  std::size_t Receive() {
    pollfd readable{.fd = receiver_.fd(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&readable, 1, 30'000), 1);
    return inbox_.Receive(receiver_);
  }
  Bytes Get(std::size_t index) {
    const Inbox::Message message = inbox_.Get(index);
    return {message.data, message.data + message.size};
  }

  KernelSocket sender_ = Bound();
  KernelSocket receiver_ = Bound();
  sockaddr_in receiver_address_;
  Outbox outbox_{sender_};
  Inbox inbox_;
};

TEST_F(LoopbackTest, WhatTheKernelDropsIsToldOnce) {
  constexpr int kSmallest = 1;
  ASSERT_EQ(setsockopt(receiver_.fd(), SOL_SOCKET, SO_RCVBUF, &kSmallest, sizeof(kSmallest)), 0);
  EXPECT_EQ(receiver_.TakeDrops(), 0U);
  const std::vector<Bytes> packets(50, Bytes(1000));
  Send(packets);
  const std::size_t received = Receive();
  ASSERT_LT(received, packets.size());
  EXPECT_EQ(receiver_.TakeDrops(), packets.size() - received);
  EXPECT_EQ(receiver_.TakeDrops(), 0U);
}

TEST_F(LoopbackTest, ASocketThatIsUsedAgainTellsNothingOfBefore) {
  constexpr int kSmallest = 1;
  ASSERT_EQ(setsockopt(receiver_.fd(), SOL_SOCKET, SO_RCVBUF, &kSmallest, sizeof(kSmallest)), 0);
  const std::vector<Bytes> packets(50, Bytes(1000));
  Send(packets);
  ASSERT_LT(Receive(), packets.size());
  KernelSocket again(receiver_.Release());
  EXPECT_EQ(again.TakeDrops(), 0U);
  Send(packets);
  EXPECT_EQ(again.TakeDrops(), packets.size() - inbox_.Receive(again));
}

TEST_F(LoopbackTest, PacketsArriveInOrderWithTheirSender) {
  Send({{1}, {2, 2}, Bytes(1500, 3)});
  ASSERT_EQ(Receive(), 3U);
  EXPECT_EQ(Get(0), (Bytes{1}));
  EXPECT_EQ(Get(1), (Bytes{2, 2}));
  EXPECT_EQ(Get(2), Bytes(1500, 3));
  EXPECT_EQ(inbox_.Get(2).from->sin_port, AddressOf(sender_.fd()).sin_port);
  EXPECT_EQ(inbox_.Get(2).from->sin_addr.s_addr, tests::Ip("127.0.0.1").to_in_addr().s_addr);
  EXPECT_FALSE(inbox_.Get(2).truncated);
}

TEST_F(LoopbackTest, APacketTellsItsLinkWhereTheSocketWasAskedTo) {
  Send({{1}});
  ASSERT_EQ(Receive(), 1U);
  EXPECT_EQ(inbox_.Get(0).link, 0);
  constexpr int kOn = 1;
  ASSERT_EQ(setsockopt(receiver_.fd(), IPPROTO_IP, IP_PKTINFO, &kOn, sizeof(kOn)), 0);
  for (int i = 0; i < 2; ++i) {
    Send({{1}, {2}});
    ASSERT_EQ(Receive(), 2U);
    for (const std::size_t index : {0U, 1U}) {
      EXPECT_EQ(inbox_.Get(index).link, static_cast<int>(if_nametoindex("lo")));
    }
  }
}

TEST_F(LoopbackTest, WithoutAPacketNothingIsReceived) { EXPECT_EQ(inbox_.Receive(receiver_), 0U); }

TEST_F(LoopbackTest, ABatchIsReceivedAtMost) {
  Send(std::vector<Bytes>(kBatch + 3, Bytes{7}));
  EXPECT_EQ(Receive(), kBatch);
  EXPECT_EQ(Receive(), 3U);
}

TEST_F(LoopbackTest, ADatagramLargerThanABufferIsMarked) {
  Send({Bytes(Inbox::kSize, 1), Bytes(Inbox::kSize + 1, 2)});
  ASSERT_EQ(Receive(), 2U);
  EXPECT_FALSE(inbox_.Get(0).truncated);
  EXPECT_EQ(inbox_.Get(0).size, Inbox::kSize);
  EXPECT_TRUE(inbox_.Get(1).truncated);
}

TEST_F(LoopbackTest, HeadersFitBeforeAMessage) {
  Send({{1, 2, 3}});
  ASSERT_EQ(Receive(), 1U);
  const Inbox::Message message = inbox_.Get(0);
  std::fill_n(message.data - Inbox::kHeadroom, Inbox::kHeadroom, std::uint8_t{9});
  EXPECT_EQ(Get(0), (Bytes{1, 2, 3}));
}

TEST_F(LoopbackTest, APacketThatTheKernelRefusesIsReported) {
  const Bytes too_large(70'000);
  outbox_.Add(too_large.data(), too_large.size(), receiver_address_, 0);
  outbox_.Add("x", 1, receiver_address_, 1);
  Done done;
  outbox_.Flush([&done](std::size_t tag, bool sent) { done.emplace_back(tag, sent); });
  EXPECT_THAT(done, ElementsAre(Pair(0, false), Pair(1, true)));
}

// One end of a pair of sockets whose peer reads only what the test takes.
class FullSocketTest : public ::testing::Test {
 protected:
  FullSocketTest() {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    peer_ = base::Descriptor(ends[1]);
    socket_.emplace(base::Descriptor(ends[0]));
    message_.msg_hdr.msg_iov = &vector_;
    message_.msg_hdr.msg_iovlen = 1;
    while (sent_ < kTooMany && Send()) ++sent_;
  }

  bool Send() { return socket_->Send({&message_, 1}) == 1; }
  // How often this thread has given up the processor to wait.
  static long Waits() {
    rusage usage{};
    EXPECT_EQ(getrusage(RUSAGE_THREAD, &usage), 0);
    return usage.ru_nvcsw;
  }

  static constexpr std::size_t kTooMany = 100'000;

  std::array<char, 1> byte_{};
  iovec vector_{.iov_base = byte_.data(), .iov_len = byte_.size()};
  mmsghdr message_{};
  std::optional<KernelSocket> socket_;
  base::Descriptor peer_;
  std::size_t sent_ = 0;  // until the socket was full
};

TEST_F(FullSocketTest, RefusesUntilThereIsRoom) {
  EXPECT_GT(sent_, 0U);
  EXPECT_LT(sent_, kTooMany);
  EXPECT_FALSE(Send());
  ASSERT_EQ(recv(peer_.get(), byte_.data(), byte_.size(), 0), 1);
  EXPECT_TRUE(Send());
}

TEST_F(FullSocketTest, IsNotWaitedFor) {
  constexpr int kSends = 50;
  const long before = Waits();
  for (int i = 0; i < kSends; ++i) EXPECT_FALSE(Send());
  // Anything else of the kernel may make the thread wait, but not as often.
  EXPECT_LT(Waits() - before, kSends / 2);
}

}  // namespace
