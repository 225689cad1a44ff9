#include <gmock/gmock.h>

#include <string>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

using testing::StrEq;

class ConfdPath : public ConfdTest {
 protected:
  ConfdPath() {
    Open(R"({"shop:config": {
      "item": [{"name": "a/b[1]"}, {"name": "two words", "part": [
        {"row": "r", "column": 1, "note": "first"}, {"row": "r", "column": 2}]}, {"name": ""}],
      "shop-extras:extra": "e", "name": "plain", "shop-extras:name": "extra"}})");
  }

  void ExpectBadPath(const char* path, const char* text) {
    EXPECT_EQ(cdb_exists(sock_, "%s", path), CONFD_ERR) << path;
    EXPECT_EQ(confd_errno, CONFD_ERR_BADPATH);
    EXPECT_THAT(confd_lasterr(), StrEq(std::string(path) + ": " + text));
  }

  std::string String(const char* path) {
    char text[64] = "";
    EXPECT_EQ(cdb_get_str(sock_, text, sizeof text, "%s", path), CONFD_OK) << confd_lasterr();
    return text;
  }
};

TEST_F(ConfdPath, TakesTheKeyAsItIsUpToTheBrace) {
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a/b[1]}/name"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{two words}"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{two words }"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{two}"), 0);
}

TEST_F(ConfdPath, FindsTheEmptyKey) {
  EXPECT_EQ(cdb_exists(sock_, "/config/item{}"), 1);
  Open(R"({"shop:config": {"item": [{"name": "x"}]}})");
  EXPECT_EQ(cdb_exists(sock_, "/config/item{}"), 0);
}

TEST_F(ConfdPath, FindsEntriesBySeveralKeys) {
  EXPECT_EQ(cdb_exists(sock_, "/config/item{two words}/part{r 2}"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{two words}/part{r 3}"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{two words}/part{s 1}"), 0);
  EXPECT_EQ(String("/config/item{two words}/part{r 1}/note"), "first");
}

TEST_F(ConfdPath, FindsEntriesByPosition) {
  EXPECT_EQ(String("/config/item[0]/name"), "");
  EXPECT_EQ(cdb_exists(sock_, "/config/item[%d]", 2), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item[3]"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item[3]/name"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item[18446744073709551615]"), 0);
}

TEST_F(ConfdPath, TakesModuleNameAndPrefixAtAnyNode) {
  EXPECT_EQ(String("/shop:config/shop-extras:extra"), "e");
  EXPECT_EQ(String("/sh:config/ex:extra"), "e");
  EXPECT_EQ(String("/config/extra"), "e");
  EXPECT_EQ(String("/sh:config/sh:item{two words}/part{r 1}/sh:note"), "first");
}

TEST_F(ConfdPath, TellsNodesOfTheSameNameApartByPrefix) {
  EXPECT_EQ(String("/config/shop:name"), "plain");
  EXPECT_EQ(String("/config/ex:name"), "extra");
  EXPECT_EQ(String("/config/name"), "plain");
}

TEST_F(ConfdPath, AnswersTheSameOnRepeatedLookUps) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(String("/config/ex:name"), "extra");
    EXPECT_EQ(String("/config/name"), "plain");
    ExpectBadPath("/config/ex:item", "no such node in the schema: 'ex:item'");
  }
}

TEST_F(ConfdPath, RefusesNodesThatTheSchemaLacks) {
  ExpectBadPath("/config/item{x}/zip", "no such node in the schema: 'zip'");
  ExpectBadPath("/nowhere", "no such node in the schema: 'nowhere'");
  ExpectBadPath("/ex:config", "no such node in the schema: 'ex:config'");
  ExpectBadPath("/config/none:name", "no such node in the schema: 'none:name'");
  ExpectBadPath("/config/nam", "no such node in the schema: 'nam'");
  ExpectBadPath("/config/names", "no such node in the schema: 'names'");
}

TEST_F(ConfdPath, DoesNotSeeChoicesAndCases) {
  EXPECT_EQ(cdb_exists(sock_, "/config/item{x}/two"), 0);
  ExpectBadPath("/config/item{x}/way", "no such node in the schema: 'way'");
  ExpectBadPath("/config/item{x}/way/one/one", "no such node in the schema: 'way'");
}

TEST_F(ConfdPath, ChecksTheSchemaBelowEntriesThatAreAbsent) {
  EXPECT_EQ(cdb_exists(sock_, "/config/item{absent}/box/deep/bottom"), 0);
  ExpectBadPath("/config/item{absent}/box/shallow", "no such node in the schema: 'shallow'");
}

TEST_F(ConfdPath, RefusesAListWithoutAnEntryInTheMiddle) {
  ExpectBadPath("/config/item/name", "the list 'item' needs a key or a position here");
  ExpectBadPath("/config/item{two words}/part/note",
                "the list 'part' needs a key or a position here");
}

TEST_F(ConfdPath, RefusesToGoBelowLeaves) {
  ExpectBadPath("/config/name/x", "nothing can be below 'name'");
  ExpectBadPath("/config/colour/x", "nothing can be below 'colour'");
  ExpectBadPath("/config/blob/x", "nothing can be below 'blob'");
}

TEST_F(ConfdPath, RefusesEntriesOfWhatIsNoList) {
  ExpectBadPath("/config{x}", "'config' is not a list and takes no key and no position");
  ExpectBadPath("/config/name[0]", "'name' is not a list and takes no key and no position");
  ExpectBadPath("/config/colour{red}", "'colour' is not a list and takes no key and no position");
}

TEST_F(ConfdPath, RefusesTheWrongNumberOfKeys) {
  ExpectBadPath("/config/item{x}/part{r}", "the list 'part' has 2 keys, the path gives 1");
  ExpectBadPath("/config/item{x}/part{r 1 2}", "the list 'part' has 2 keys, the path gives 3");
  ExpectBadPath("/config/log{x}", "the list 'log' has 0 keys, the path gives 1");
}

TEST_F(ConfdPath, RefusesMalformedPaths) {
  ExpectBadPath("", "the path is empty");
  ExpectBadPath("config", "every node of an absolute path begins with '/'");
  ExpectBadPath("/", "a node has no name");
  ExpectBadPath("/config/", "a node has no name");
  ExpectBadPath("//config", "a node has no name");
  ExpectBadPath("/sh:", "a node has no name");
  ExpectBadPath("/:config", "a node has an empty prefix");
  ExpectBadPath("/{x}", "a node has no name");
  ExpectBadPath("/config/item{x", "a '{' has no '}'");
  ExpectBadPath("/config/item[1", "a '[' has no ']'");
  ExpectBadPath("/config/item{x}y", "every node of an absolute path begins with '/'");
  ExpectBadPath("/config/item{x}[0]", "every node of an absolute path begins with '/'");
}

TEST_F(ConfdPath, RefusesPositionsThatAreNoNumbers) {
  for (const char* path :
       {"/config/item[]", "/config/item[-1]", "/config/item[x]", "/config/item[1x]",
        "/config/item[ 1]", "/config/item[0x1]", "/config/item[18446744073709551616]"}) {
    ExpectBadPath(path, "a position is not a number of 0 or more");
  }
}

}  // namespace
}  // namespace confd_test
