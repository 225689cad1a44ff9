// The link watcher over a scripted cache: events, lost events, and what reaches its user.

#include "dhcp_manager/kernel/link_watcher.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vxmw/vxmw.h>

#include "base/descriptor.h"
#include "tests/support/loop.h"

namespace {

using dhcp_manager::Links;
using dhcp_manager::LinkWatcher;
using dhcp_manager::NetlinkCache;

// What the kernel has, and the events that wait.
struct Kernel {
  Links links;
  std::optional<std::string> lost;  // why the events that wait are lost
  bool refuses = false;
  int caches_opened = 0;
  int caches = 0;
  int event = -1;  // of the latest cache
};

class ScriptedCache final : public NetlinkCache {
 public:
  explicit ScriptedCache(Kernel& kernel)
      : kernel_(kernel), event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), links_(kernel.links) {
    if (kernel.refuses) throw std::runtime_error("cannot read the kernel's links");
    ++kernel_.caches_opened;
    ++kernel_.caches;
    kernel_.event = event_.get();
  }
  ~ScriptedCache() override { --kernel_.caches; }

  int fd() const override { return event_.get(); }
  std::optional<std::string> TakeEvents() override {
    eventfd_t count = 0;
    eventfd_read(event_.get(), &count);
    if (kernel_.lost) return std::exchange(kernel_.lost, std::nullopt);
    links_ = kernel_.links;
    return std::nullopt;
  }
  // After lost events it is out of date, as the real one.
  Links Read() const override { return links_; }

 private:
  Kernel& kernel_;
  base::Descriptor event_;
  Links links_;
};

class LinkWatcherTest : public ::testing::Test {
 protected:
  LinkWatcherTest() { AddLink(1); }
  ~LinkWatcherTest() override {
    watcher_.reset();
    vxmw_finish(&mw_);
  }

  void Watch() {
    watcher_ = std::make_unique<LinkWatcher>(
        mw_, [this] { return std::make_unique<ScriptedCache>(kernel_); }, [this] { ++changes_; });
  }
  void AddLink(int index) {
    kernel_.links.links[index] = {
        .index = index, .name = "a" + std::to_string(index), .vrf_table = std::nullopt};
  }
  void AddAddress(const std::string& address, bool secondary = false) {
    kernel_.links.addresses.push_back({.link = 1,
                                       .address = *nettypes::IPv4Addr::parse(address),
                                       .broadcast = {},
                                       .prefix_length = 24,
                                       .secondary = secondary});
  }
  std::vector<std::string> Addresses() const {
    std::vector<std::string> addresses;
    for (const auto& entry : watcher_->links().addresses) {
      addresses.push_back(entry.address.to_string());
    }
    return addresses;
  }
  // An event of the kernel, which the watcher takes.
  void Event() {
    ++events_;
    eventfd_write(kernel_.event, 1);
  }
  bool RunUntil(const std::function<bool()>& condition) { return tests::RunUntil(mw_, condition); }
  bool Taken() const {
    eventfd_t count = 0;
    const bool waits = eventfd_read(kernel_.event, &count) == 0;
    if (waits) eventfd_write(kernel_.event, count);
    return !waits;
  }

  vxmw_t* mw_ = vxmw_init("link_watcher_test");
  Kernel kernel_;
  int events_ = 0;
  int changes_ = 0;
  std::unique_ptr<LinkWatcher> watcher_;
};

TEST_F(LinkWatcherTest, KnowsThePresentStateAtOnce) {
  Watch();
  EXPECT_EQ(watcher_->links(), kernel_.links);
  EXPECT_EQ(changes_, 0);
}

TEST_F(LinkWatcherTest, ReportsAChange) {
  Watch();
  AddLink(2);
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ > 0; }));
  EXPECT_EQ(changes_, 1);
  EXPECT_EQ(watcher_->links().links.size(), 2U);
  EXPECT_EQ(kernel_.caches_opened, 1);
}

TEST_F(LinkWatcherTest, AnEventThatChangesNothingIsNotReported) {
  Watch();
  Event();
  ASSERT_TRUE(RunUntil([this] { return Taken(); }));
  EXPECT_EQ(changes_, 0);
}

TEST_F(LinkWatcherTest, ReadsEverythingAnewWhenEventsWereLost) {
  Watch();
  AddLink(2);
  kernel_.lost = "Out of memory";
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ > 0; }));
  EXPECT_EQ(watcher_->links(), kernel_.links);
  EXPECT_EQ(kernel_.caches_opened, 2);
  EXPECT_EQ(kernel_.caches, 1);
  AddLink(3);
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ > 1; }));
  EXPECT_EQ(watcher_->links(), kernel_.links);
}

TEST_F(LinkWatcherTest, LostEventsThatChangeNothingAreNotReported) {
  Watch();
  kernel_.lost = "Out of memory";
  Event();
  ASSERT_TRUE(RunUntil([this] { return kernel_.caches_opened == 2; }));
  EXPECT_EQ(changes_, 0);
}

TEST_F(LinkWatcherTest, AnAddressThatIsReportedAnewKeepsItsPlace) {
  AddAddress("192.168.5.1");
  AddAddress("192.168.55.1");
  Watch();
  // The refresh of a lifetime moves the address to the end of libnl's cache.
  std::swap(kernel_.links.addresses[0], kernel_.links.addresses[1]);
  Event();
  ASSERT_TRUE(RunUntil([this] { return Taken(); }));
  EXPECT_EQ(changes_, 0);
  EXPECT_EQ(Addresses(), (std::vector<std::string>{"192.168.5.1", "192.168.55.1"}));
}

TEST_F(LinkWatcherTest, ANewAddressFollowsThoseThatWereThere) {
  AddAddress("192.168.5.1");
  Watch();
  AddAddress("192.168.55.1");
  std::swap(kernel_.links.addresses[0], kernel_.links.addresses[1]);
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ > 0; }));
  EXPECT_EQ(Addresses(), (std::vector<std::string>{"192.168.5.1", "192.168.55.1"}));
}

TEST_F(LinkWatcherTest, AnAddressThatWasRemovedHasLostItsPlace) {
  AddAddress("192.168.5.1");
  AddAddress("192.168.55.1");
  Watch();
  kernel_.links.addresses.erase(kernel_.links.addresses.begin());
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ == 1; }));
  AddAddress("192.168.5.1");
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ == 2; }));
  EXPECT_EQ(Addresses(), (std::vector<std::string>{"192.168.55.1", "192.168.5.1"}));
}

TEST_F(LinkWatcherTest, SecondaryAddressesAreBehindAllOthers) {
  AddAddress("192.168.5.2", true);
  AddAddress("192.168.5.1");
  Watch();
  EXPECT_EQ(Addresses(), (std::vector<std::string>{"192.168.5.1", "192.168.5.2"}));
  // The primary one goes, and the kernel promotes the other.
  kernel_.links.addresses = {kernel_.links.addresses[0]};
  kernel_.links.addresses[0].secondary = false;
  AddAddress("192.168.5.1", true);
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ > 0; }));
  EXPECT_EQ(Addresses(), (std::vector<std::string>{"192.168.5.2", "192.168.5.1"}));
}

TEST_F(LinkWatcherTest, AfterLostEventsTheOrderIsTheKernels) {
  AddAddress("192.168.5.1");
  AddAddress("192.168.55.1");
  Watch();
  std::swap(kernel_.links.addresses[0], kernel_.links.addresses[1]);
  kernel_.lost = "Out of memory";
  Event();
  ASSERT_TRUE(RunUntil([this] { return changes_ > 0; }));
  EXPECT_EQ(Addresses(), (std::vector<std::string>{"192.168.55.1", "192.168.5.1"}));
}

TEST_F(LinkWatcherTest, AKernelThatRefusesIsAnError) {
  kernel_.refuses = true;
  EXPECT_THROW(Watch(), std::runtime_error);
}

TEST_F(LinkWatcherTest, AKernelThatRefusesLaterEndsTheLoop) {
  Watch();
  kernel_.refuses = true;
  kernel_.lost = "Out of memory";
  Event();
  EXPECT_THROW(RunUntil([] { return false; }), std::runtime_error);
}

TEST(NetlinkCacheTest, ReadsTheKernelsLoopbackDevice) {
  const auto cache = dhcp_manager::OpenNetlinkCache({});
  const Links links = cache->Read();
  const auto has_loopback = [](const auto& entry) { return entry.second.name == "lo"; };
  EXPECT_TRUE(std::ranges::any_of(links.links, has_loopback));
  EXPECT_GE(cache->fd(), 0);
}

}  // namespace
