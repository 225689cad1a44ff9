// Searches that ask every entry of a list for one entry of its own.

#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

// c0 holds b0, c1 holds b1 and so on; all hold "common"; c3 has nothing else, and c9 has a jar.
constexpr int kCrates = 20;

std::string Crate(int number) {
  const std::string n = std::to_string(number);
  const std::string own = number == 3 ? "" : R"(, {"label": "b)" + n + R"("})";
  return R"({"name": "c)" + n + R"(", "inside": {"bottle": [{"label": "common"})" + own + "]}" +
         (number == 9 ? R"(, "jar": [{"label": "b5"}])" : "") + "}";
}

std::string Crates() {
  std::string list = Crate(0);
  for (int i = 1; i < kCrates; ++i) list += "," + Crate(i);
  return R"({"shop:last": {"crate": [)" + list + "]}}";
}

// The name of the crate at a position: the data is sorted by names.
std::string SortedName(int position) {
  std::set<std::string> names;
  for (int i = 0; i < kCrates; ++i) names.insert("c" + std::to_string(i));
  return *std::next(names.begin(), position);
}

std::string Path(const std::string& crate, const std::string& bottle) {
  return "/last/crate{" + crate + "}/inside/bottle{" + bottle + "}";
}

class ConfdListMembers : public ConfdTest {
 protected:
  void SetUp() override { Open(Crates()); }

  int Exists(const std::string& path) const { return cdb_exists(sock_, "%s", path.c_str()); }

  // The crates that have this bottle, each asked for it.
  std::vector<int> Holders(const std::string& bottle) const {
    std::vector<int> holders;
    for (int i = 0; i < kCrates; ++i) {
      if (Exists(Path("c" + std::to_string(i), bottle)) == 1) holders.push_back(i);
    }
    return holders;
  }
};

TEST_F(ConfdListMembers, FindsTheOneHolderOfEach) {
  for (int i = 0; i < kCrates; ++i) {
    const std::vector<int> expected = i == 3 ? std::vector<int>{} : std::vector<int>{i};
    EXPECT_EQ(Holders("b" + std::to_string(i)), expected) << i;
  }
}

TEST_F(ConfdListMembers, FindsAllHoldersOfOne) {
  EXPECT_EQ(Holders("common").size(), static_cast<std::size_t>(kCrates));
}

TEST_F(ConfdListMembers, FindsNoHolderOfWhatIsNotThere) { EXPECT_TRUE(Holders("none").empty()); }

TEST_F(ConfdListMembers, AnOuterEntryThatIsNotThereHoldsNothing) {
  Holders("common");
  EXPECT_EQ(Exists(Path("c20", "common")), 0);
  EXPECT_EQ(Exists(Path("", "common")), 0);
}

TEST_F(ConfdListMembers, AnswersOtherPathsOfTheListAsBefore) {
  Holders("b5");
  EXPECT_EQ(Exists("/last/crate{c5}"), 1);
  EXPECT_EQ(Exists("/last/crate{b5}"), 0);
  EXPECT_EQ(Exists("/last/crate{c5}/jar{b5}"), 0);
  EXPECT_EQ(Exists("/last/crate{c9}/jar{b5}"), 1);
  EXPECT_EQ(Exists("/last/crate{c5}/inside"), 1);
  EXPECT_EQ(Exists("/last/crate{c5}/inside/bottle[1]"), 1);
  EXPECT_EQ(Exists("/last/crate{c5}/inside/bottle{b5}/label"), 1);
}

TEST_F(ConfdListMembers, AnswersOtherPathsAfterAnyNumberOfSearches) {
  for (int searches = 1; searches < 10; ++searches) {
    confd::CloseSession(sock_);
    Open(Crates());
    for (int i = 0; i < searches; ++i) Exists(Path("c" + std::to_string(i), "b5"));
    EXPECT_EQ(Exists("/last/crate{c5}"), 1) << searches;
    EXPECT_EQ(Exists(Path("c5", "b5")), 1) << searches;
  }
}

TEST_F(ConfdListMembers, RefusesWrongPathsOfTheListAsBefore) {
  Holders("b5");
  EXPECT_EQ(Exists("/last/crate{c5}x}/inside/bottle{b5}"), CONFD_ERR);
  EXPECT_EQ(confd_errno, CONFD_ERR_BADPATH);
  EXPECT_EQ(Exists("/last/crate{c5}/inside/bottle{b5}}"), CONFD_ERR);
  EXPECT_EQ(Exists("/last/crate{c5"), CONFD_ERR);
  EXPECT_EQ(Exists("/last/crate{c5}/inside/bottles{b5}"), CONFD_ERR);
}

TEST_F(ConfdListMembers, FollowsWhatIsAskedForFromListToList) {
  Holders("b5");
  for (int i = 0; i < kCrates; ++i) {
    const std::string crate = "/last/crate{c" + std::to_string(i) + "}";
    EXPECT_EQ(Exists(crate + "/jar{b5}"), i == 9 ? 1 : 0) << i;
    EXPECT_EQ(Exists(crate + "/inside/bottle{b5}"), i == 5 ? 1 : 0) << i;
  }
  EXPECT_EQ(Holders("b7"), std::vector<int>{7});
}

TEST_F(ConfdListMembers, KeysReadAgainAreEqualAndBelongToTheirReader) {
  for (int round = 0; round < 4; ++round) {
    std::vector<confd_value_t> names(kCrates);
    ASSERT_GT(cdb_get_objects(sock_, names.data(), 1, 0, kCrates, "/last/crate"), 0);
    for (int i = 0; i < kCrates; ++i) {
      EXPECT_EQ(Text(names[static_cast<std::size_t>(i)]), SortedName(i));
      confd_free_value(&names[static_cast<std::size_t>(i)]);
    }
    ASSERT_GT(cdb_get_objects(sock_, names.data(), 1, 5, 2, "/last/crate"), 0);
    EXPECT_EQ(Text(names[0]), SortedName(5));
    confd_free_value(&names[0]);
    confd_free_value(&names[1]);
  }
}

TEST_F(ConfdListMembers, AValueOutlivesTheSessionItWasSharedIn) {
  std::vector<confd_value_t> names(kCrates);
  for (int round = 0; round < 3; ++round) {
    for (confd_value_t& name : names) confd_free_value(&name);
    ASSERT_GT(cdb_get_objects(sock_, names.data(), 1, 0, kCrates, "/last/crate"), 0);
  }
  confd::CloseSession(sock_);
  EXPECT_EQ(Text(names[7]), SortedName(7));
  for (confd_value_t& name : names) confd_free_value(&name);
}

}  // namespace
}  // namespace confd_test
