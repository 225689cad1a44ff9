// The route cache over a scripted kernel: what is asked once, and when it is asked again.

#include "dhcp_manager/kernel/route_cache.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <vxmw/vxmw.h>

#include "base/descriptor.h"
#include "tests/support/loop.h"

namespace {

using dhcp_manager::kDefaultVrf;
using dhcp_manager::RouteCache;
using dhcp_manager::RouteQuery;
using nettypes::IPv4Addr;

constexpr int kRedVrf = 9;
const IPv4Addr kServer = *IPv4Addr::parse("10.0.0.1");
const IPv4Addr kOther = *IPv4Addr::parse("10.0.0.2");

// What the kernel has, and what it was asked.
struct Kernel {
  std::map<std::pair<int, IPv4Addr>, std::vector<int>> routes;
  bool silent = false;
  int questions = 0;
  int armed = 0;
  base::Descriptor event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

class ScriptedQuery final : public RouteQuery {
 public:
  explicit ScriptedQuery(Kernel& kernel) : kernel_(kernel) {}

  int fd() const override { return kernel_.event.get(); }
  void Arm() override {
    ++kernel_.armed;
    eventfd_t count = 0;
    eventfd_read(fd(), &count);
  }
  std::vector<int> Find(int vrf, IPv4Addr address) override {
    ++kernel_.questions;
    if (kernel_.silent) throw std::runtime_error("no answer came");
    const auto found = kernel_.routes.find({vrf, address});
    return found == kernel_.routes.end() ? std::vector<int>() : found->second;
  }

 private:
  Kernel& kernel_;
};

class RouteCacheTest : public ::testing::Test {
 protected:
  RouteCacheTest() {
    kernel_.routes[{kDefaultVrf, kServer}] = {4, 7};
    cache_ = std::make_unique<RouteCache>(mw_, std::make_unique<ScriptedQuery>(kernel_));
  }
  ~RouteCacheTest() override {
    cache_.reset();
    vxmw_finish(&mw_);
  }

  bool Leads(int link, IPv4Addr address = kServer, int vrf = kDefaultVrf) {
    return cache_->LeadsTo(vrf, address, link);
  }
  void RouteChanges() const { eventfd_write(kernel_.event.get(), 1); }
  // Until the loop has seen all that waits: its turn for a timer that came later.
  void RunLoop() {
    int turns = 0;
    EXPECT_TRUE(tests::RunUntil(mw_, [&turns] { return ++turns == 3; }));
  }

  vxmw_t* mw_ = vxmw_init("route_cache_test");
  Kernel kernel_;
  std::unique_ptr<RouteCache> cache_;
};

TEST_F(RouteCacheTest, ARouteLeadsToEachOfItsNextHops) {
  EXPECT_TRUE(Leads(4));
  EXPECT_TRUE(Leads(7));
  EXPECT_FALSE(Leads(5));
  EXPECT_FALSE(Leads(0));
}

TEST_F(RouteCacheTest, TheKernelIsAskedOnce) {
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Leads(4));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(Leads(4, kOther));
  EXPECT_EQ(kernel_.questions, 2);
  EXPECT_EQ(kernel_.armed, 1);
}

TEST_F(RouteCacheTest, EachVrfHasItsRoutes) {
  kernel_.routes[{kRedVrf, kServer}] = {8};
  EXPECT_TRUE(Leads(8, kServer, kRedVrf));
  EXPECT_FALSE(Leads(4, kServer, kRedVrf));
  EXPECT_FALSE(Leads(8));
}

TEST_F(RouteCacheTest, AChangeMakesItAskAgain) {
  EXPECT_TRUE(Leads(4));
  kernel_.routes[{kDefaultVrf, kServer}] = {5};
  EXPECT_TRUE(Leads(4));
  RouteChanges();
  RunLoop();
  EXPECT_FALSE(Leads(4));
  EXPECT_TRUE(Leads(5));
  EXPECT_EQ(kernel_.questions, 2);
}

TEST_F(RouteCacheTest, ChangesBetweenTwoQuestionsAreOneChange) {
  RouteChanges();
  EXPECT_TRUE(Leads(4));
  RunLoop();
  EXPECT_TRUE(Leads(4));
  EXPECT_EQ(kernel_.questions, 1) << "a change before the question is no reason to ask again";
  for (int i = 0; i < 3; ++i) {
    RouteChanges();
    RunLoop();
  }
  EXPECT_EQ(kernel_.armed, 1) << "nobody listens before the next question";
  EXPECT_TRUE(Leads(4));
  EXPECT_EQ(kernel_.questions, 2);
  EXPECT_EQ(kernel_.armed, 2);
}

TEST_F(RouteCacheTest, WhatIsForgottenIsAskedAgain) {
  EXPECT_TRUE(Leads(4));
  cache_->Forget();
  EXPECT_TRUE(Leads(4));
  EXPECT_EQ(kernel_.questions, 2);
}

TEST_F(RouteCacheTest, WithoutAnAnswerThereIsNoRouteUntilThereIsOne) {
  kernel_.silent = true;
  EXPECT_FALSE(Leads(4));
  kernel_.silent = false;
  EXPECT_TRUE(Leads(4));
}

TEST(RouteQueryTest, AnAddressOfThisDeviceIsBehindNoLink) {
  const auto query = dhcp_manager::OpenRouteQuery();
  query->Arm();
  const auto links = query->Find(kDefaultVrf, *IPv4Addr::parse("127.0.0.1"));
  EXPECT_TRUE(links.empty());
}

}  // namespace
