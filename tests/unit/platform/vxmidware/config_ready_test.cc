#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vxmw::ConfigReadyWatch;

class ConfigReady : public ::testing::Test {
 protected:
  ~ConfigReady() override { vxmw_finish(&mw_); }

  vxmw_t* mw_ = vxmw_init("vxmw_test");
};

TEST_F(ConfigReady, IsTrueAlreadyWhenWatchesAreTold) {
  bool seen = false;
  const ConfigReadyWatch watch(mw_, [&](bool) { seen = vxmw::ConfigReady(mw_); });
  vxmw::SetConfigReady(mw_, true);
  EXPECT_TRUE(seen);
}

TEST_F(ConfigReady, TellsEveryWatchInTheOrderTheyCame) {
  std::vector<int> told;
  const ConfigReadyWatch first(mw_, [&](bool) { told.push_back(1); });
  const ConfigReadyWatch second(mw_, [&](bool) { told.push_back(2); });
  vxmw::SetConfigReady(mw_, true);
  EXPECT_THAT(told, ElementsAre(1, 2));
}

TEST_F(ConfigReady, WatchMayDestroyItself) {
  std::unique_ptr<ConfigReadyWatch> watch;
  std::string after;
  watch = std::make_unique<ConfigReadyWatch>(mw_, [&, text = std::string(100, 'x')](bool) {
    watch.reset();
    after = text;  // what the callback holds is still there
  });
  vxmw::SetConfigReady(mw_, true);
  EXPECT_EQ(after, std::string(100, 'x'));
  after.clear();
  vxmw::SetConfigReady(mw_, false);
  EXPECT_THAT(after, IsEmpty());
}

TEST_F(ConfigReady, WatchThatAnotherDestroyedIsNotTold) {
  std::unique_ptr<ConfigReadyWatch> second;
  bool told = false;
  const ConfigReadyWatch first(mw_, [&](bool) { second.reset(); });
  second = std::make_unique<ConfigReadyWatch>(mw_, [&](bool) { told = true; });
  vxmw::SetConfigReady(mw_, true);
  EXPECT_FALSE(told);
}

TEST_F(ConfigReady, WatchMadeWhileOthersAreToldWaitsForTheNextChange) {
  std::vector<bool> told;
  std::unique_ptr<ConfigReadyWatch> made;
  const ConfigReadyWatch maker(mw_, [&](bool) {
    if (made) return;
    made = std::make_unique<ConfigReadyWatch>(mw_, [&](bool ready) { told.push_back(ready); });
  });
  vxmw::SetConfigReady(mw_, true);
  EXPECT_THAT(told, IsEmpty());
  vxmw::SetConfigReady(mw_, false);
  EXPECT_THAT(told, ElementsAre(false));
}

TEST_F(ConfigReady, ChangedByAWatchIsLastToldAsItIs) {
  std::vector<bool> told;
  const ConfigReadyWatch contrary(mw_, [&](bool ready) {
    if (ready) vxmw::SetConfigReady(mw_, false);
  });
  const ConfigReadyWatch watch(mw_, [&](bool ready) { told.push_back(ready); });
  vxmw::SetConfigReady(mw_, true);
  EXPECT_THAT(told, ElementsAre(false));
}

TEST_F(ConfigReady, GivesTheCallerWhatAWatchThrows) {
  const ConfigReadyWatch watch(mw_, [](bool) { throw std::runtime_error("not now"); });
  EXPECT_THROW(vxmw::SetConfigReady(mw_, true), std::runtime_error);
  EXPECT_TRUE(vxmw::ConfigReady(mw_));
}

}  // namespace
