// The mirror against the datastore: after every commit it equals a fresh read.

#include "platform/vxconfd/src/mirror.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <confd_cdb.h>
#include <vxmw/vxmw.h>

#include "platform/vxconfd/src/data_tree.h"
#include "platform/vxconfd/src/datastore.h"
#include "platform/vxconfd/src/subscription.h"
#include "tests/integration/platform/vxconfd/committer.h"
#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

using vxconfd::DataTree;
using vxconfd::DataTreePtr;

const vxconfd::Modules kModules = {"vx-config"};

constexpr char kInitial[] = R"({ "metacli-internal:internal": { "vrf-config": { "stringTOindex": [
    { "name": "red", "vrf-idx": 7 }, { "name": "blue", "vrf-idx": 12 } ] } } })";

std::string Print(const DataTree& data, std::uint32_t defaults) {
  char* text = nullptr;
  lyd_print_mem(&text, data.first(), LYD_JSON, LYD_PRINT_WITHSIBLINGS | defaults);
  std::string copy = text != nullptr ? text : "";
  std::free(text);
  return copy;
}

// With every default node, and which of the nodes hold their default.
std::string Print(const DataTree& data) { return Print(data, LYD_PRINT_WD_ALL_TAG); }

// The same, but only what was not set counts as a default.
std::string PrintFlags(const DataTree& data) { return Print(data, LYD_PRINT_WD_IMPL_TAG); }

// Edits of one commit at random, of few names, so that commits meet what others made.
class RandomEdits {
 public:
  explicit RandomEdits(unsigned seed) : random_(seed) {}

  void Make(tests::Committer& committer) {
    edited_.clear();
    if (Number(0, 9) == 0) return Replace(committer);
    for (int i = Number(1, 6); i > 0; --i) MakeOne(committer);
  }

 private:
  int Number(int from, int to) { return std::uniform_int_distribution<>(from, to)(random_); }
  std::string Pick(const std::vector<std::string>& values) {
    return values[static_cast<std::size_t>(Number(0, static_cast<int>(values.size()) - 1))];
  }

  void MakeOne(tests::Committer& committer) {
    const std::string l3 = std::to_string(Number(1, 4));
    const std::string relay =
        "/vx-config:config/vx-dhcp-relay:dhcp/relay[name='r" + std::to_string(Number(1, 4)) + "']";
    const std::string interface = "/vx-config:config/vx-interface:interface/l3[name='" + l3 + "']";
    switch (Number(0, 8)) {
      case 0:
        return Toggle(committer, relay);
      case 1:
        return Toggle(committer, relay + "/server/ipv4[address='10.0.0." + l3 + "']");
      case 2:
        return Toggle(committer, relay + "/interface[name='l3-" + l3 + "']");
      case 3:
        return SetOrDelete(committer, relay + "/vrf", Pick({"red", "blue"}));
      case 4:
        return SetOrDelete(committer, relay + "/relay-information/policy",
                           Pick({"drop", "keep", "replace"}));
      case 5:
        return SetOrDelete(committer, relay + "/relay-information/check", Pick({"true", "false"}));
      case 6:
        return SetOrDelete(committer,
                           relay + "/if-option[name='l3-" + l3 + "']/relay-information/option",
                           Pick({"true", "false"}));
      case 7:
        return SetOrDelete(committer, interface + "/lower-layer-if/vlan",
                           std::to_string(Number(1, 4094)));
      default:
        return SetOrDelete(committer, interface + "/ipv4/address/ip", "192.168." + l3 + ".1/24");
    }
  }

  // An instance anew, with what it sets, which may be the default, and no more.
  void Replace(tests::Committer& committer) {
    const std::string setting = R"("relay-information": { ")" + Pick({"check", "option"}) +
                                R"(": )" + Pick({"true", "false"}) + R"(, "policy": ")" +
                                Pick({"drop", "keep"}) + R"(" })";
    committer.Edit(R"({ "vx-config:config": { "vx-dhcp-relay:dhcp": { "relay": [ { "name": "r)" +
                   std::to_string(Number(1, 4)) + R"(", )" + setting +
                   R"(, "@": { "ietf-netconf:operation": "replace" } } ] } } })");
  }

  void Toggle(tests::Committer& committer, const std::string& path) {
    SetOrDelete(committer, path, "");
  }

  // The datastore refuses a commit that edits one part of the tree twice.
  void SetOrDelete(tests::Committer& committer, const std::string& path, const std::string& value) {
    for (const std::string& edited : edited_) {
      if (path.starts_with(edited) || edited.starts_with(path)) return;
    }
    edited_.insert(path);
    Number(0, 2) > 0 ? committer.Set(path, value) : committer.Delete(path);
  }

  std::mt19937 random_;
  std::set<std::string> edited_;
};

class MirrorTest : public ::testing::Test {
 protected:
  MirrorTest() {
    repository_.InstallModelsWithConfiguration(kInitial);
    datastore_ = std::make_shared<vxconfd::Datastore>();
    context_ = datastore_->CopyInstalledModels();
    mirror_.emplace(Read());
    subscription_ = std::make_unique<vxconfd::Subscription>(
        mw_, *datastore_, kModules, 0,
        vxconfd::SubscriptionCalls{
            .committed = [this](const lyd_node* diff) { Apply(diff); },
            .missed = [](bool /*more_to_come*/) { ADD_FAILURE() << "a commit was missed"; },
            .failed = [](const std::string& reason) { ADD_FAILURE() << reason; }});
    committer_.emplace();
  }
  ~MirrorTest() override {
    committer_.reset();
    subscription_.reset();
    vxmw_finish(&mw_);
  }

  DataTreePtr Read() { return datastore_->ReadRunning(kModules, context_); }

  // Data that is read to be compared is what Read gives, unless it equals what is held.
  void ExpectComparable(const DataTree& fresh, const DataTree& held) {
    const bool equal = vxconfd::Difference(held, fresh)->first() == nullptr;
    const DataTreePtr changed = datastore_->ReadRunningUnlessEqual(kModules, held);
    ASSERT_EQ(changed == nullptr, equal);
    if (changed) {
      EXPECT_EQ(Print(*changed), Print(fresh));
      EXPECT_EQ(PrintFlags(*changed), PrintFlags(fresh));
      EXPECT_EQ(vxconfd::Difference(fresh, *changed)->first(), nullptr);
    }
  }

  void Apply(const lyd_node* diff) {
    ++applied_;
    const DataTreePtr changes = vxconfd::CopyData(context_, diff);
    ASSERT_NE(changes, nullptr);
    EXPECT_TRUE(mirror_->Apply(*changes)) << Print(*changes);
    last_ = changes;
  }

  // The datastore announces no commit that only sets to its default what is at its default, or
  // resets it. A comparison finds that, and finds nothing else.
  void ExpectFreshData() {
    const DataTreePtr fresh = Read();
    ExpectComparable(*fresh, mirror_->data());
    ExpectComparable(*fresh, *fresh);
    ExpectComparable(*fresh, DataTree(context_));
    EXPECT_EQ(Print(mirror_->data()), Print(*fresh));
    vxconfd::Mirror copy(vxconfd::CopyData(context_, mirror_->data().first()));
    const DataTreePtr difference = vxconfd::Difference(copy.data(), *fresh);
    EXPECT_EQ(vxconfd::CountChanges(difference->first()), 0);
    EXPECT_TRUE(copy.Apply(*difference));
    EXPECT_EQ(PrintFlags(copy.data()), PrintFlags(*fresh));
  }

  void Commit(const std::function<void(tests::Committer&)>& edit) {
    EXPECT_TRUE(tests::ServeWhile(mw_, [&] {
      edit(*committer_);
      committer_->Commit();
    }));
  }

  tests::PrivateRepository repository_;
  vxmw_t* mw_ = vxmw_init("mirror_test");
  std::shared_ptr<vxconfd::Datastore> datastore_;
  vxconfd::ContextPtr context_;
  std::optional<vxconfd::Mirror> mirror_;
  std::unique_ptr<vxconfd::Subscription> subscription_;
  std::optional<tests::Committer> committer_;
  int applied_ = 0;
  DataTreePtr last_;
};

constexpr char kR1[] = "/vx-config:config/vx-dhcp-relay:dhcp/relay[name='r1']";
constexpr char kVlan[] =
    "/vx-config:config/vx-interface:interface/l3[name='5']/lower-layer-if/vlan";

TEST_F(MirrorTest, EqualsAFreshReadAfterEveryOfManyRandomCommits) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  RandomEdits edits(seed);
  for (int i = 0; i < 300 && !HasFailure(); ++i) {
    Commit([&edits](tests::Committer& committer) { edits.Make(committer); });
    ExpectFreshData();
  }
  EXPECT_GT(applied_, 200);
}

class Writer {
 public:
  explicit Writer(unsigned seed) : edits_(seed) {}

  void Commit() {
    edits_.Make(committer_);
    committer_.Commit(std::chrono::seconds(30));
  }

 private:
  tests::Committer committer_;
  RandomEdits edits_;
};

TEST_F(MirrorTest, EqualsAFreshReadAfterCommitsOfSeveralAtOnce) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Writer first(seed);
  Writer second(seed + 1);
  Writer third(seed + 2);
  for (int i = 0; i < 60 && !HasFailure(); ++i) {
    EXPECT_TRUE(tests::ServeWhile(mw_, [&] {
      auto next = std::async(std::launch::async, [&second] { second.Commit(); });
      auto last = std::async(std::launch::async, [&third] { third.Commit(); });
      first.Commit();
      next.get();
      last.get();
    }));
    ExpectFreshData();
  }
  EXPECT_GT(applied_, 120);
}

TEST_F(MirrorTest, IsNotToldOfASettingThatIsMadeExplicitAtItsDefault) {
  static constexpr char kOption[] =
      "/vx-config:config/vx-dhcp-relay:dhcp/relay[name='r1']/relay-information/option";
  Commit([](tests::Committer& committer) { committer.Set(kR1, ""); });
  const std::string flags = PrintFlags(mirror_->data());
  Commit([](tests::Committer& committer) { committer.Set(kOption, "false"); });
  EXPECT_EQ(applied_, 1);
  EXPECT_NE(PrintFlags(*Read()), flags);
  ExpectFreshData();
  Commit([](tests::Committer& committer) { committer.Set(kOption, "true"); });
  EXPECT_EQ(applied_, 2);
  EXPECT_EQ(PrintFlags(mirror_->data()), PrintFlags(*Read()));
}

TEST_F(MirrorTest, RefusesADifferenceThatItHoldsAlready) {
  Commit([](tests::Committer& committer) { committer.Set(kVlan, "5"); });
  const std::string before = Print(mirror_->data());
  EXPECT_FALSE(mirror_->Apply(*last_));
  EXPECT_EQ(Print(mirror_->data()), before);
}

TEST_F(MirrorTest, RefusesADifferenceThatStartsFromAnotherValue) {
  Commit([](tests::Committer& committer) { committer.Set(kVlan, "5"); });
  const DataTreePtr older = vxconfd::CopyData(context_, mirror_->data().first());
  Commit([](tests::Committer& committer) { committer.Set(kVlan, "6"); });
  Commit([](tests::Committer& committer) { committer.Set(kVlan, "7"); });
  vxconfd::Mirror behind(older);
  EXPECT_FALSE(behind.Apply(*last_));
  EXPECT_EQ(Print(behind.data()), Print(*older));
}

TEST_F(MirrorTest, ADifferenceOfTwoReadsBringsTheMirrorFromOneToTheOther) {
  const DataTreePtr empty = Read();
  RandomEdits edits(7);
  for (int i = 0; i < 20; ++i) {
    Commit([&edits](tests::Committer& committer) { edits.Make(committer); });
  }
  vxconfd::Mirror behind(empty);
  ASSERT_TRUE(behind.Apply(*vxconfd::Difference(behind.data(), *Read())));
  EXPECT_EQ(PrintFlags(behind.data()), PrintFlags(*Read()));
}

TEST_F(MirrorTest, KeepsNobodyFromInstallingModels) {
  repository_.InstallModel("later", R"(module later { namespace "urn:test:later"; prefix l;
      leaf x { type string; } })");
  EXPECT_NE(datastore_->ModuleOf("/x"), "");
}

}  // namespace
