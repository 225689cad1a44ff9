// The link watcher on the loop: what reaches its user, and how it gets over losses.

#include "dhcp_manager/kernel/link_watcher.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <vxmw/vxmw.h>

#include "tests/support/loop.h"
#include "tests/unit/dhcp_manager/kernel/scripted_kernel.h"

namespace {

using dhcp_manager::Links;
using dhcp_manager::LinkWatcher;
using tests::Ip;

class LinkWatcherTest : public ::testing::Test {
 protected:
  LinkWatcherTest() {
    AddLink(1);
    kernel_.AddAddress(
        {.link = 1, .address = Ip("192.168.5.1"), .broadcast = {}, .prefix_length = 24});
  }
  ~LinkWatcherTest() override {
    watcher_.reset();
    vxmw_finish(&mw_);
  }

  void Watch() {
    const auto open = [this] { return std::make_unique<tests::ScriptedLinkSocket>(kernel_); };
    watcher_ = std::make_unique<LinkWatcher>(
        mw_, open(), dhcp_manager::VrfDevices(),
        [this](const Links::Changes& changes) { changes_.push_back(changes); }, open);
  }
  void AddLink(int index) {
    kernel_.SetLink(
        {.index = index, .name = "a" + std::to_string(index), .vrf_table = std::nullopt});
  }
  bool RunUntil(const std::function<bool()>& condition) { return tests::RunUntil(mw_, condition); }
  bool RunUntilUpToDate() {
    return RunUntil([this] { return watcher_->links() == kernel_.Fresh(); });
  }

  vxmw_t* mw_ = vxmw_init("link_watcher_test");
  tests::ScriptedKernel kernel_;
  std::vector<Links::Changes> changes_;
  std::unique_ptr<LinkWatcher> watcher_;
};

TEST_F(LinkWatcherTest, KnowsThePresentStateAtOnce) {
  Watch();
  EXPECT_EQ(watcher_->links(), kernel_.Fresh());
  EXPECT_EQ(watcher_->links().size(), 1U);
  EXPECT_TRUE(changes_.empty());
}

TEST_F(LinkWatcherTest, TellsWhatChanges) {
  Watch();
  AddLink(2);
  ASSERT_TRUE(RunUntil([this] { return !changes_.empty(); }));
  EXPECT_EQ(changes_.size(), 1U);
  EXPECT_EQ(changes_[0].links, std::unordered_set<int>{2});
  EXPECT_EQ(watcher_->links(), kernel_.Fresh());
}

TEST_F(LinkWatcherTest, AnEventThatChangesNothingIsNotTold) {
  Watch();
  AddLink(1);
  AddLink(2);
  ASSERT_TRUE(RunUntilUpToDate());
  ASSERT_EQ(changes_.size(), 1U);
  EXPECT_EQ(changes_[0].links, std::unordered_set<int>{2});
}

TEST_F(LinkWatcherTest, ReadsAllAnewAfterAnOverrunAndCountsIt) {
  Watch();
  AddLink(2);
  kernel_.Overrun();
  ASSERT_TRUE(RunUntilUpToDate());
  EXPECT_EQ(watcher_->overruns(), 1U);
  EXPECT_EQ(kernel_.sockets_opened, 1) << "another socket would have less room";
  ASSERT_EQ(changes_.size(), 1U);
  EXPECT_EQ(changes_[0].links, std::unordered_set<int>{2});
  AddLink(3);
  ASSERT_TRUE(RunUntilUpToDate());
}

TEST_F(LinkWatcherTest, WhatWaitsAfterAnOverrunDoesNotStopIt) {
  Watch();
  kernel_.Overrun();
  // Just as many as are skipped at once: nothing that waits wakes up the loop after them.
  for (int i = 0; i < 256; ++i) AddLink(2);
  ASSERT_TRUE(RunUntilUpToDate());
}

TEST_F(LinkWatcherTest, KeepsWhatItKnowsUntilAllHasBeenReadAnew) {
  Watch();
  const Links known = kernel_.Fresh();
  kernel_.refuses_dumps = EBUSY;
  AddLink(2);
  kernel_.Overrun();
  const int dumps = kernel_.dumps;
  ASSERT_TRUE(RunUntil([&] { return kernel_.dumps > dumps + 2; }));
  EXPECT_EQ(watcher_->links(), known);
  EXPECT_EQ(watcher_->overruns(), 1U);
  kernel_.refuses_dumps = 0;
  ASSERT_TRUE(RunUntilUpToDate());
}

TEST_F(LinkWatcherTest, ASocketThatFailsIsReplaced) {
  Watch();
  kernel_.Fail(std::system_error(EBADF, std::generic_category(), "cannot read"));
  AddLink(2);
  ASSERT_TRUE(RunUntil([this] { return kernel_.sockets_opened == 2; }));
  ASSERT_TRUE(RunUntilUpToDate());
  EXPECT_EQ(kernel_.sockets, 1);
  EXPECT_EQ(watcher_->overruns(), 0U);
}

TEST_F(LinkWatcherTest, AKernelThatRefusesANewSocketIsAskedAgain) {
  Watch();
  kernel_.refuses_sockets = true;
  kernel_.Fail(std::system_error(EBADF, std::generic_category(), "cannot read"));
  ASSERT_TRUE(RunUntil([this] { return kernel_.sockets_opened > 3; }));
  AddLink(2);
  kernel_.refuses_sockets = false;
  ASSERT_TRUE(RunUntilUpToDate());
}

TEST_F(LinkWatcherTest, AFirstReadingThatFailsIsRepeated) {
  kernel_.refuses_dumps = EBUSY;
  Watch();
  EXPECT_EQ(watcher_->links(), Links());
  kernel_.refuses_dumps = 0;
  ASSERT_TRUE(RunUntilUpToDate());
  ASSERT_EQ(changes_.size(), 1U);
  EXPECT_EQ(changes_[0].links, std::unordered_set<int>{1});
}

}  // namespace
