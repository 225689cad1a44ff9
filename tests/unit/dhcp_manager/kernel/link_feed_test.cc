// The first reading, events before, within and after it, losses, and portions.

#include "dhcp_manager/kernel/link_feed.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "tests/unit/dhcp_manager/kernel/scripted_kernel.h"

namespace {

using dhcp_manager::LinkFeed;
using dhcp_manager::Links;
using dhcp_manager::Overrun;
using tests::Ip;

class LinkFeedTest : public ::testing::Test {
 protected:
  LinkFeedTest() {
    for (const int link : {1, 2, 3}) AddLink(link);
    for (const int link : {1, 2, 3}) AddAddress(link, "192.168." + std::to_string(link) + ".1");
  }

  void AddLink(int index, bool up = true) {
    kernel_.SetLink(
        {.index = index, .name = "a" + std::to_string(index), .up = up, .vrf_table = std::nullopt});
  }
  void AddAddress(int link, const std::string& address) {
    kernel_.AddAddress(
        {.link = link, .address = Ip(address), .broadcast = {}, .prefix_length = 24});
  }
  void Open() {
    feed_ = std::make_unique<LinkFeed>(std::make_unique<tests::ScriptedLinkSocket>(kernel_),
                                       dhcp_manager::VrfDevices());
    feed_->Restart();
  }
  // False when the feed needs more portions.
  bool Read(int portions = 100) {
    for (int i = 0; i < portions && !feed_->live(); ++i) feed_->TakePortion(links_);
    return feed_->live();
  }
  void TakePortion() { feed_->TakePortion(links_); }
  // What the next portions fail with.
  std::string Failure() {
    try {
      for (int i = 0; i < 100; ++i) TakePortion();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "nothing";
  }
  void ExpectUpToDate() { EXPECT_EQ(links_, kernel_.Fresh()); }

  tests::ScriptedKernel kernel_;
  Links links_;
  std::unique_ptr<LinkFeed> feed_;
};

TEST_F(LinkFeedTest, ReadsAllLinksAndAddresses) {
  Open();
  ASSERT_TRUE(Read());
  ExpectUpToDate();
  EXPECT_EQ(links_.size(), 3U);
  EXPECT_EQ(kernel_.dumps, 2);
}

TEST_F(LinkFeedTest, UntilAllIsReadNothingChanges) {
  kernel_.part_size = 1;
  Open();
  while (!feed_->live()) {
    EXPECT_EQ(links_, Links());
    TakePortion();
  }
  ExpectUpToDate();
}

TEST_F(LinkFeedTest, FollowsEvents) {
  Open();
  ASSERT_TRUE(Read());
  AddLink(4);
  AddAddress(4, "192.168.4.1");
  AddLink(1, false);
  kernel_.RemoveLink(2);
  TakePortion();
  ExpectUpToDate();
  EXPECT_EQ(kernel_.dumps, 2);
}

TEST_F(LinkFeedTest, TakesEventsInPortions) {
  Open();
  ASSERT_TRUE(Read());
  for (int link = 10; link < 10 + 2 * LinkFeed::kEvents; ++link) AddLink(link);
  TakePortion();
  EXPECT_EQ(links_.size(), 3U + LinkFeed::kEvents);
  TakePortion();
  ExpectUpToDate();
}

TEST_F(LinkFeedTest, TakesADumpInPortions) {
  kernel_.part_size = 1;
  for (int link = 10; link < 50; ++link) AddLink(link);
  Open();
  EXPECT_FALSE(Read(40));
  EXPECT_TRUE(Read());
}

// Applied to what is not read yet, they would put the new address before the old ones.
TEST_F(LinkFeedTest, AddressesThatCameBeforeTheirDumpKeepTheKernelsOrder) {
  kernel_.part_size = 1;
  Open();
  TakePortion();
  AddAddress(2, "192.168.22.1");
  ASSERT_TRUE(Read());
  ExpectUpToDate();
  EXPECT_EQ(links_.AddressesOf(2)[0].address, Ip("192.168.2.1"));
}

TEST_F(LinkFeedTest, EventsWithinADumpCount) {
  kernel_.part_size = 1;
  Open();
  TakePortion();
  TakePortion();
  AddLink(1, false);
  AddLink(3, false);
  ASSERT_TRUE(Read());
  ExpectUpToDate();
}

TEST_F(LinkFeedTest, ADumpDuringWhichSomethingCameIsNotTrusted) {
  kernel_.part_size = 1;
  Open();
  TakePortion();
  TakePortion();
  AddLink(4);
  EXPECT_EQ(Failure(), "interfaces or addresses changed while the kernel listed them");
  EXPECT_EQ(links_, Links());
  feed_->Restart();
  ASSERT_TRUE(Read());
  ExpectUpToDate();
}

TEST_F(LinkFeedTest, AfterAnOverrunAllIsReadAnewOnTheSameSocket) {
  Open();
  ASSERT_TRUE(Read());
  AddLink(4);
  kernel_.RemoveLink(2);
  kernel_.Overrun();
  EXPECT_THROW(TakePortion(), Overrun);
  EXPECT_EQ(links_.size(), 3U);
  feed_->Restart();
  ASSERT_TRUE(Read());
  ExpectUpToDate();
  EXPECT_EQ(kernel_.sockets_opened, 1);
}

TEST_F(LinkFeedTest, WhatWaitsAfterAnOverrunIsSkipped) {
  Open();
  ASSERT_TRUE(Read());
  kernel_.Overrun();
  EXPECT_THROW(TakePortion(), Overrun);
  for (int i = 0; i < 1000; ++i) AddLink(5, i % 2 == 0);
  feed_->Restart();
  TakePortion();
  EXPECT_TRUE(feed_->draining());
  EXPECT_EQ(kernel_.dumps, 2);
  ASSERT_TRUE(Read());
  ExpectUpToDate();
}

TEST_F(LinkFeedTest, ADumpThatWasCutOffIsNotTakenForTheNext) {
  kernel_.part_size = 1;
  Open();
  TakePortion();
  TakePortion();
  kernel_.Overrun();
  EXPECT_THROW(TakePortion(), Overrun);
  kernel_.RemoveLink(3);
  feed_->Restart();
  ASSERT_TRUE(Read());
  ExpectUpToDate();
}

TEST_F(LinkFeedTest, AnOverrunThatTheKernelTellsInAMessageIsOne) {
  Open();
  ASSERT_TRUE(Read());
  kernel_.Put(tests::EndMessage(NLMSG_OVERRUN, {}));
  EXPECT_THROW(TakePortion(), Overrun);
}

TEST_F(LinkFeedTest, ARefusalTellsTheReason) {
  kernel_.refuses_dumps = EPERM;
  Open();
  EXPECT_EQ(Failure(), "the kernel does not list its interfaces: Operation not permitted");
}

TEST_F(LinkFeedTest, ADumpThatEndsWithAnErrorTellsIt) {
  kernel_.part_size = 1;
  Open();
  TakePortion();
  kernel_.Put(tests::EndMessage(NLMSG_DONE, {.port = 77, .sequence = 1}, EMSGSIZE));
  EXPECT_EQ(Failure(), "the kernel does not list its interfaces: Message too long");
}

TEST_F(LinkFeedTest, AMessageThatIsTooShortIsAFailure) {
  Open();
  ASSERT_TRUE(Read());
  kernel_.Put(tests::Message(RTM_NEWLINK, std::uint32_t{}));
  EXPECT_EQ(Failure(), "cannot read a message of the kernel: Netlink message is too short");
}

TEST(LinkSocketTest, ReadsTheKernelsLoopbackDevice) {
  LinkFeed feed(dhcp_manager::OpenLinkSocket(), {});
  Links links;
  feed.Restart();
  // The kernel writes a part of an answer while it is asked or read.
  for (int i = 0; i < 10000 && !feed.live(); ++i) feed.TakePortion(links);
  ASSERT_TRUE(feed.live());
  ASSERT_NE(links.Find(1), nullptr);
  EXPECT_EQ(links.Find(1)->name, "lo");
}

}  // namespace
