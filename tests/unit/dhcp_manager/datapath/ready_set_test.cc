#include "dhcp_manager/datapath/ready_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <system_error>
#include <vector>

#include "base/descriptor.h"

namespace {

using dhcp_manager::ReadySet;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class ReadySetTest : public ::testing::Test {
 protected:
  static base::Descriptor Event(unsigned value) {
    return base::Descriptor(eventfd(value, EFD_CLOEXEC | EFD_NONBLOCK));
  }
  std::vector<ReadySet::Key> Ready() {
    std::vector<ReadySet::Key> keys;
    set_.ForEachReady([&keys](ReadySet::Key key) { keys.push_back(key); });
    return keys;
  }

  const base::Descriptor quiet_ = Event(0);
  const base::Descriptor readable_ = Event(1);
  const base::Descriptor other_ = Event(1);
  ReadySet set_;
};

TEST_F(ReadySetTest, WithoutMembersNoneIsReady) { EXPECT_THAT(Ready(), IsEmpty()); }

TEST_F(ReadySetTest, TellsThoseThatAreReadable) {
  const auto quiet = set_.Add(quiet_.get(), 1);
  const auto readable = set_.Add(readable_.get(), 2);
  const auto other = set_.Add(other_.get(), 3);
  EXPECT_THAT(Ready(), UnorderedElementsAre(2, 3));
}

TEST_F(ReadySetTest, TellsAgainUntilASocketIsEmptied) {
  const auto readable = set_.Add(readable_.get(), 2);
  EXPECT_THAT(Ready(), ElementsAre(2));
  EXPECT_THAT(Ready(), ElementsAre(2));
  eventfd_t value = 0;
  ASSERT_EQ(eventfd_read(readable_.get(), &value), 0);
  EXPECT_THAT(Ready(), IsEmpty());
}

TEST_F(ReadySetTest, AMemberThatLeftIsNotTold) {
  auto readable = set_.Add(readable_.get(), 2);
  const auto other = set_.Add(other_.get(), 3);
  readable.reset();
  EXPECT_THAT(Ready(), ElementsAre(3));
  readable = set_.Add(readable_.get(), 4);
  EXPECT_THAT(Ready(), UnorderedElementsAre(3, 4));
}

TEST_F(ReadySetTest, WhatCannotBeWatchedIsRefused) {
  EXPECT_THROW(set_.Add(-1, 1), std::system_error);
  EXPECT_THAT(Ready(), IsEmpty());
}

}  // namespace
