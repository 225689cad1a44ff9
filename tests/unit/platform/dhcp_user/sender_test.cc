#include "platform/dhcp_user/src/sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "tests/support/calls.h"

namespace {

using base::Descriptor;
using base::PacketReader;
using dhcp_relay::Sender;
using dhcp_relay::wire::ClientMessage;
using ::testing::Each;
using ::testing::ElementsAre;

class SenderTest : public ::testing::Test {
 protected:
  SenderTest() {
    std::array<int, 2> fds{};
    socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds.data());
    ours_ = Descriptor(fds[0]);
    theirs_ = Descriptor(fds[1]);
    sender_.Reset(ours_.get());
  }

  Sender::Result Send(int number) {
    return sender_.Send(tests::Call(dhcp_relay::wire::DELETE_INSTANCE, std::to_string(number)));
  }

  Sender::Result SendComplete() {
    ClientMessage message;
    message.mutable_dump_complete()->set_id(1);
    return sender_.Send(message);
  }

  // Sends calls until the socket takes no more; returns how many there were, those that wait too.
  int FillSocket() {
    int sent = 0;
    while (!sender_.waiting()) EXPECT_EQ(Send(sent++), Sender::Result::kOk);
    return sent;
  }

  // What there is to receive: the numbers of the calls, -1 for a completed dump.
  void Drain() {
    while (reader_.Receive(theirs_.get()) == PacketReader::Result::kPacket) {
      ++packets_;
      ClientMessage message;
      reader_.Parse(message);
      for (const auto& call : message.calls().calls()) {
        received_.push_back(std::stoi(call.instance()));
      }
      if (message.has_dump_complete()) received_.push_back(-1);
      if (message.has_calls()) continues_.push_back(message.calls().commit_continues());
    }
  }

  void DrainAll() {
    Drain();
    while (sender_.waiting()) {
      ASSERT_EQ(sender_.Flush(), Sender::Result::kOk);
      Drain();
    }
  }

  std::vector<int> Numbers(int count) {
    std::vector<int> numbers(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) numbers[static_cast<std::size_t>(i)] = i;
    return numbers;
  }

  Descriptor ours_;
  Descriptor theirs_;
  PacketReader reader_;
  Sender sender_{1024 * 1024};
  std::vector<int> received_;
  std::vector<bool> continues_;  // what each packet of calls tells
  int packets_ = 0;
};

TEST_F(SenderTest, GivesACallAPacketOfItsOwnAtOnce) {
  Send(0);
  Send(1);
  EXPECT_FALSE(sender_.waiting());
  Drain();
  EXPECT_EQ(packets_, 2);
  EXPECT_EQ(received_, Numbers(2));
}

TEST_F(SenderTest, KeepsTheOrderOverAFullSocketAndBatchesWhatWaits) {
  const int before = FillSocket();
  constexpr int kMore = 5000;
  for (int i = before; i < before + kMore; ++i) ASSERT_EQ(Send(i), Sender::Result::kOk);
  DrainAll();
  EXPECT_EQ(received_, Numbers(before + kMore));
  EXPECT_LT(packets_, before + 10);
}

TEST_F(SenderTest, OtherMessagesKeepTheirPlaceAmongCallsThatWait) {
  const int before = FillSocket();
  Send(before);
  SendComplete();
  Send(before + 1);
  DrainAll();
  auto expected = Numbers(before + 1);
  expected.push_back(-1);
  expected.push_back(before + 1);
  EXPECT_EQ(received_, expected);
}

TEST_F(SenderTest, HeldCallsGoTogether) {
  sender_.Hold();
  for (int i = 0; i < 100; ++i) Send(i);
  Drain();
  EXPECT_EQ(packets_, 0);
  SendComplete();
  EXPECT_EQ(sender_.Release(), Sender::Result::kOk);
  DrainAll();
  auto expected = Numbers(100);
  expected.push_back(-1);
  EXPECT_EQ(received_, expected);
  EXPECT_EQ(packets_, 2);
}

TEST_F(SenderTest, HeldCallsThatFillAPacketAreSent) {
  sender_.Hold();
  for (int i = 0; i < 10000; ++i) Send(i);
  Drain();
  EXPECT_GT(packets_, 0);
  sender_.Release();
  DrainAll();
  EXPECT_EQ(received_, Numbers(10000));
}

TEST_F(SenderTest, ACommitThatFitsAPacketIsSentAtItsEnd) {
  sender_.BeginCommit();
  for (int i = 0; i < 100; ++i) Send(i);
  Drain();
  EXPECT_EQ(packets_, 0);
  EXPECT_EQ(sender_.EndCommit(), Sender::Result::kOk);
  Drain();
  EXPECT_EQ(received_, Numbers(100));
  EXPECT_THAT(continues_, ElementsAre(false));
}

TEST_F(SenderTest, ACommitWithoutCallsSendsNothing) {
  sender_.BeginCommit();
  EXPECT_EQ(sender_.EndCommit(), Sender::Result::kOk);
  Drain();
  EXPECT_EQ(packets_, 0);
}

TEST_F(SenderTest, EveryPacketOfALongCommitButTheLastTellsThatItContinues) {
  sender_.BeginCommit();
  for (int i = 0; i < 10000; ++i) Send(i);
  Drain();
  EXPECT_GT(packets_, 1);
  EXPECT_THAT(continues_, Each(true));
  continues_.clear();
  EXPECT_EQ(sender_.EndCommit(), Sender::Result::kOk);
  DrainAll();
  EXPECT_EQ(received_, Numbers(10000));
  EXPECT_THAT(continues_, ElementsAre(false));
}

TEST_F(SenderTest, ACommitWhoseLastCallFillsAPacketIsEndedByAnEmptyOne) {
  sender_.BeginCommit();
  int sent = 0;
  while (packets_ == 0) {
    Send(sent++);
    Drain();
  }
  EXPECT_EQ(sender_.EndCommit(), Sender::Result::kOk);
  Drain();
  EXPECT_EQ(received_, Numbers(sent));
  EXPECT_THAT(continues_, ElementsAre(true, false));
}

TEST_F(SenderTest, AMessageInTheMiddleOfACommitDoesNotEndIt) {
  sender_.BeginCommit();
  Send(0);
  SendComplete();
  Send(1);
  sender_.EndCommit();
  DrainAll();
  EXPECT_THAT(received_, ElementsAre(0, -1, 1));
  EXPECT_THAT(continues_, ElementsAre(true, false));
}

TEST_F(SenderTest, ALongCommitOverAFullSocketEndsBeforeTheNextCall) {
  const int before = FillSocket();
  sender_.BeginCommit();
  for (int i = before; i < before + 5000; ++i) ASSERT_EQ(Send(i), Sender::Result::kOk);
  EXPECT_EQ(sender_.EndCommit(), Sender::Result::kOk);
  Send(before + 5000);
  DrainAll();
  EXPECT_EQ(received_, Numbers(before + 5001));
  ASSERT_GT(continues_.size(), 2U);
  EXPECT_THAT(std::vector<bool>(continues_.end() - 3, continues_.end()),
              ElementsAre(true, false, false));
}

TEST_F(SenderTest, ResetEndsACommit) {
  sender_.BeginCommit();
  for (int i = 0; i < 10000; ++i) Send(i);
  Drain();
  sender_.Reset(ours_.get());
  continues_.clear();
  Send(0);
  EXPECT_EQ(sender_.EndCommit(), Sender::Result::kOk);
  Drain();
  EXPECT_THAT(continues_, ElementsAre(false));
}

TEST_F(SenderTest, ReportsThatTheQueueLimitIsExceeded) {
  Sender small(1000);
  small.Reset(ours_.get());
  int sent = 0;
  Sender::Result result = Sender::Result::kOk;
  while (result == Sender::Result::kOk && sent < 100000) {
    result = small.Send(tests::Call(dhcp_relay::wire::DELETE_INSTANCE, std::to_string(sent++)));
  }
  EXPECT_EQ(result, Sender::Result::kOverLimit);
}

TEST_F(SenderTest, ReportsThatThePeerIsGone) {
  theirs_ = Descriptor();
  EXPECT_EQ(Send(0), Sender::Result::kLost);
}

TEST_F(SenderTest, ResetDropsWhatWaits) {
  FillSocket();
  ASSERT_TRUE(sender_.waiting());
  sender_.Reset(ours_.get());
  EXPECT_FALSE(sender_.waiting());
}

}  // namespace
