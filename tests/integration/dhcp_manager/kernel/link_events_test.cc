// The link watcher on the real kernel, in a network namespace of the test: whatever happens, what
// follows the events equals what a fresh dump tells.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <vxmw/vxmw.h>

#include "base/system_error.h"
#include "dhcp_manager/kernel/link_watcher.h"
#include "tests/support/loop.h"

namespace {

using dhcp_manager::LinkFeed;
using dhcp_manager::Links;
using dhcp_manager::LinkWatcher;
using Commands = std::vector<std::string>;

// The test's process has it to itself, and it goes with it.
void EnterNamespace() {
  if (unshare(CLONE_NEWNET) != 0) base::ThrowSystemError("cannot make a network namespace");
}

// Carries out commands of ip(8); those that the kernel refuses are passed over.
void RunIp(const Commands& commands) {
  FILE* const ip = popen("ip -force -batch - 2> /dev/null", "w");
  if (ip == nullptr) base::ThrowSystemError("cannot run ip");
  for (const std::string& command : commands) std::fprintf(ip, "%s\n", command.c_str());
  pclose(ip);
}

// What a dump tells now.
Links Fresh() {
  LinkFeed feed(dhcp_manager::OpenLinkSocket(), {});
  Links links;
  feed.Restart();
  while (!feed.live()) feed.TakePortion(links);
  return links;
}

class LinkEventsTest : public ::testing::Test {
 protected:
  LinkEventsTest() { EnterNamespace(); }
  ~LinkEventsTest() override {
    watcher_.reset();
    vxmw_finish(&mw_);
  }

  // With room for events as small as the kernel permits, if wanted.
  void Watch(bool small = false) {
    auto socket = dhcp_manager::OpenLinkSocket();
    constexpr int kSmallest = 1;
    if (small) {
      setsockopt(socket->fd(), SOL_SOCKET, SO_RCVBUF, &kSmallest, sizeof(kSmallest));
    }
    watcher_ = std::make_unique<LinkWatcher>(mw_, std::move(socket), dhcp_manager::VrfDevices(),
                                             [](const Links::Changes& /*changes*/) {});
  }
  // The state of a link follows its carrier a little later, so this waits for it.
  bool RunUntilUpToDate() {
    return tests::RunUntil(mw_, [this] { return watcher_->links() == Fresh(); });
  }

  vxmw_t* mw_ = vxmw_init("link_events_test");
  std::unique_ptr<LinkWatcher> watcher_;
};

class RandomChanges {
 public:
  explicit RandomChanges(unsigned seed) : random_(seed) {}

  std::string Next() {
    const std::string device = "d" + Number(0, 4);
    switch (std::uniform_int_distribution<int>(0, 9)(random_)) {
      case 0:
        return "link add " + device + " type veth peer name " + device + "-end";
      case 1:
        return "link add link " + device + " name m" + Number(0, 2) + " type macvlan";
      case 2:
        return "link del " + (Number(0, 3) == "0" ? device : "m" + Number(0, 2));
      case 3:
        return "link set " + device + (Number(0, 1) == "0" ? " up" : " down");
      case 4:
        return "link set " + device + (Number(0, 1) == "0" ? " master bridge" : " nomaster");
      case 5:
      case 6:
      case 7:
        return "addr add " + Address() + " dev " + device +
               (Number(0, 4) == "0" ? " scope link" : "");
      case 8:
        return "addr change " + Address() + " dev " + device + " valid_lft 5000 preferred_lft 4000";
      default:
        return "addr del " + Address() + " dev " + device;
    }
  }

 private:
  std::string Number(int first, int last) {
    return std::to_string(std::uniform_int_distribution<int>(first, last)(random_));
  }
  std::string Address() { return "192.168." + Number(1, 3) + "." + Number(1, 3) + "/24"; }

  std::mt19937 random_;
};

void AddVeth(const std::string& name) {
  RunIp({"link add " + name + " type veth peer name " + name + "-end", "link set " + name + " up"});
}

TEST_F(LinkEventsTest, WhatFollowsRandomChangesEqualsADump) {
  RunIp({"link add bridge type bridge", "link set bridge up"});
  for (const char* device : {"d0", "d1", "d2", "d3", "d4"}) AddVeth(device);
  Watch();
  RandomChanges changes(1);
  for (int round = 0; round < 20; ++round) {
    Commands commands(30);
    for (std::string& command : commands) command = changes.Next();
    RunIp(commands);
    ASSERT_TRUE(RunUntilUpToDate()) << "round " << round;
  }
  EXPECT_EQ(watcher_->overruns(), 0U);
  EXPECT_GT(watcher_->links().size(), 5U);
}

TEST_F(LinkEventsTest, EventsThatTheKernelHadNoRoomForAreMadeUpFor) {
  RunIp({"link add d0 type veth peer name d0-end", "link set d0 up"});
  Watch(true);
  Commands commands;
  for (int host = 1; host < 200; ++host) {
    commands.push_back("addr add 192.168.1." + std::to_string(host) + "/24 dev d0");
  }
  RunIp(commands);
  ASSERT_TRUE(RunUntilUpToDate());
  EXPECT_GE(watcher_->overruns(), 1U);
  RunIp({"link set d0 down"});
  ASSERT_TRUE(RunUntilUpToDate());
}

}  // namespace
