#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

using testing::ElementsAre;
using testing::StrEq;

constexpr int kItemValues = 17;
// Without the last, whose default only the data can tell.
constexpr int kCompared = 16;

// An array whose values are released at the end, with marks that show which were stored.
class Values {
 public:
  explicit Values(std::size_t size) : values_(size, Mark()) {}
  ~Values() {
    for (confd_value_t& value : values_) confd_free_value(&value);
  }
  Values(const Values&) = delete;
  Values& operator=(const Values&) = delete;

  confd_value_t* data() { return values_.data(); }
  const confd_value_t& operator[](std::size_t i) const { return values_[i]; }

  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const confd_value_t& value : values_) texts.push_back(Text(value));
    return texts;
  }

 private:
  static confd_value_t Mark() {
    confd_value_t value = {C_INT32, {}};
    value.val.i32 = 4711;
    return value;
  }

  std::vector<confd_value_t> values_;
};

class ConfdObject : public ConfdTest, public testing::WithParamInterface<Defaults> {
 protected:
  void OpenEither(const std::string& json) { Open(json, GetParam()); }

  void ExpectFailure(int result, int code, const std::string& text) {
    EXPECT_EQ(result, CONFD_ERR);
    EXPECT_EQ(confd_errno, code);
    EXPECT_THAT(confd_lasterr(), StrEq(text));
  }
};

INSTANTIATE_TEST_SUITE_P(Data, ConfdObject,
                         testing::Values(Defaults::kImplicit, Defaults::kLeftOut),
                         [](const auto& param) {
                           return param.param == Defaults::kImplicit ? "WithDefaults"
                                                                     : "WithoutDefaults";
                         });

TEST_P(ConfdObject, HasChildrenDepthFirstInSchemaOrder) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "number": 1, "count": 2, "flag": false,
    "box": {"inside": true, "deep": {"bottom": "b"}}, "part": [{"row": "r", "column": 1}],
    "mode": "drop", "lid": {"in-lid": 3}, "word": ["x", "y"], "mark": [8], "two": "second"}]}})");
  Values values(kCompared);
  EXPECT_EQ(cdb_get_object(sock_, values.data(), kCompared, "/config/item{a}"), kItemValues);
  EXPECT_THAT(values.Texts(),
              ElementsAre("a", "1", "2", "false", "box", "true", "deep", "b", "<none>", "enum<0>",
                          "lid", "3", "x y", "8", "<none>", "second"));
}

TEST_P(ConfdObject, FillsInDefaultsAndWhatDoesNotExist) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "two": "second"}]}})");
  Values values(kCompared);
  EXPECT_EQ(cdb_get_object(sock_, values.data(), kCompared, "/config/item[0]"), kItemValues);
  EXPECT_THAT(values.Texts(),
              ElementsAre("a", "-5", "<none>", "true", "box", "false", "deep", "<none>", "<none>",
                          "enum<1>", "<none>", "<none>", "<none>", "3 4", "<none>", "second"));
}

TEST_P(ConfdObject, HasAListInsideAsNothingWhateverItHolds) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "part": [
    {"row": "r", "column": 1}, {"row": "r", "column": 2}, {"row": "r", "column": 3}]}]}})");
  Values values(kCompared);
  cdb_get_object(sock_, values.data(), kCompared, "/config/item{a}");
  EXPECT_EQ(values[8].type, C_NOEXISTS);
  EXPECT_EQ(Text(values[9]), "enum<1>");
}

TEST_P(ConfdObject, CarriesTheHashesOfContainers) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a"}]}})");
  Values values(kCompared);
  cdb_get_object(sock_, values.data(), kCompared, "/config/item{a}");
  EXPECT_EQ(CONFD_GET_XMLTAG(&values[4]), 0x11223344U);
  EXPECT_EQ(CONFD_GET_XMLTAG_NS(&values[4]), 0x01020304U);
}

TEST_P(ConfdObject, StoresTheFirstAndReturnsTheFullCount) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a"}]}})");
  Values values(3);
  EXPECT_EQ(cdb_get_object(sock_, values.data(), 2, "/config/item{a}"), kItemValues);
  EXPECT_THAT(values.Texts(), ElementsAre("a", "-5", "4711"));
  EXPECT_EQ(cdb_get_object(sock_, values.data() + 2, 0, "/config/item{a}"), kItemValues);
  EXPECT_EQ(cdb_get_object(sock_, nullptr, 0, "/config/item{a}"), kItemValues);
  EXPECT_EQ(Text(values[2]), "4711");
}

TEST_P(ConfdObject, CanEndInsideAContainer) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a"}]}})");
  Values values(7);
  EXPECT_EQ(cdb_get_object(sock_, values.data(), 6, "/config/item{a}"), kItemValues);
  EXPECT_THAT(values.Texts(), ElementsAre("a", "-5", "<none>", "true", "box", "false", "4711"));
}

TEST_P(ConfdObject, LeavesValuesBehindTheObjectAlone) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a"}]}})");
  Values values(4);
  EXPECT_EQ(cdb_get_object(sock_, values.data(), 4, "/config/item{a}/box"), 3);
  EXPECT_THAT(values.Texts(), ElementsAre("false", "deep", "<none>", "4711"));
}

TEST_P(ConfdObject, ReadsContainersThatAreThereOnlyImplicitly) {
  OpenEither("{}");
  Values values(1);
  EXPECT_EQ(cdb_get_object(sock_, values.data(), 1, "/config/store"), 1);
  EXPECT_THAT(values.Texts(), ElementsAre("true"));
}

TEST_P(ConfdObject, IncludesAugmentedNodesAndSkipsAnydata) {
  OpenEither(R"({"shop:config": {"shop-extras:extra": "more"}})");
  Values values(25);
  ASSERT_EQ(cdb_get_object(sock_, values.data(), 25, "/config"), 25);
  EXPECT_EQ(Text(values[3]), "<none>") << "the list";
  EXPECT_EQ(Text(values[4]), "types");
  EXPECT_EQ(Text(values[20]), "<none>") << "the anydata";
  EXPECT_EQ(Text(values[21]), "more");
  EXPECT_EQ(Text(values[23]), "store");
  EXPECT_EQ(Text(values[24]), "true");
}

TEST_P(ConfdObject, FailsForEntriesThatAreAbsent) {
  OpenEither("{}");
  Values values(1);
  ExpectFailure(cdb_get_object(sock_, values.data(), 1, "/config/item{a}"), CONFD_ERR_NOEXISTS,
                "/config/item{a}: does not exist");
  ExpectFailure(cdb_get_object(sock_, values.data(), 1, "/config/item{a}/lid"), CONFD_ERR_NOEXISTS,
                "/config/item{a}/lid: does not exist");
  EXPECT_THAT(values.Texts(), ElementsAre("4711"));
}

TEST_P(ConfdObject, RefusesWhatIsNoObject) {
  OpenEither("{}");
  Values values(1);
  ExpectFailure(cdb_get_object(sock_, values.data(), 1, "/config/name"), CONFD_ERR_BADTYPE,
                "/config/name: is neither a container nor a list entry");
  ExpectFailure(cdb_get_object(sock_, values.data(), 1, "/config/item"), CONFD_ERR_BADPATH,
                "/config/item: names the list: a key or a position is missing");
  ExpectFailure(cdb_get_object(sock_, values.data(), -1, "/config"), CONFD_ERR_BADTYPE,
                "/config: a negative number of values, entries or position");
  EXPECT_THAT(values.Texts(), ElementsAre("4711"));
}

TEST_P(ConfdObject, StoresNothingWhenOneOfTheValuesCannotBeRead) {
  OpenEither(R"({"shop:config": {"types": {"address": "10.0.0.1", "decimal": "1.5"}}})");
  Values values(14);
  ExpectFailure(cdb_get_object(sock_, values.data(), 14, "/config/types"), CONFD_ERR_BADTYPE,
                "/config/types: the type of 'decimal' cannot be read");
  for (const std::string& text : values.Texts()) EXPECT_EQ(text, "4711");
  EXPECT_EQ(cdb_get_object(sock_, values.data(), 8, "/config/types"), 14);
  EXPECT_EQ(Text(values[0]), "10.0.0.1");
}

constexpr const char* kThreeItems = R"({"shop:config": {"item": [
  {"name": "a", "number": 1}, {"name": "b"}, {"name": "c", "number": 3}]}})";

TEST_P(ConfdObject, ReadsSeveralEntriesOneBehindTheOther) {
  OpenEither(kThreeItems);
  Values values(6);
  EXPECT_EQ(cdb_get_objects(sock_, values.data(), 2, 0, 3, "%s", "/config/item"), kItemValues);
  EXPECT_THAT(values.Texts(), ElementsAre("a", "1", "b", "-5", "c", "3"));
}

TEST_P(ConfdObject, ReadsEntriesFromAPosition) {
  OpenEither(kThreeItems);
  Values values(3);
  EXPECT_EQ(cdb_get_objects(sock_, values.data(), 1, 1, 2, "/config/item"), kItemValues);
  EXPECT_THAT(values.Texts(), ElementsAre("b", "c", "4711"));
}

TEST_P(ConfdObject, FillsTheRestOfShortEntries) {
  OpenEither(R"({"shop:top": [{"id": 1}, {"id": 2}]})");
  Values values(6);
  EXPECT_EQ(cdb_get_objects(sock_, values.data(), 3, 0, 2, "/top"), 1);
  EXPECT_THAT(values.Texts(), ElementsAre("1", "<none>", "<none>", "2", "<none>", "<none>"));
}

TEST_P(ConfdObject, ReadsNoEntriesAndTouchesNothing) {
  OpenEither(kThreeItems);
  Values values(1);
  EXPECT_EQ(cdb_get_objects(sock_, values.data(), 1, 0, 0, "/config/item"), kItemValues);
  EXPECT_EQ(cdb_get_objects(sock_, nullptr, 1, 9, 0, "/config/item"), kItemValues);
  OpenEither("{}");
  EXPECT_EQ(cdb_get_objects(sock_, values.data(), 1, 0, 0, "/config/item"), kItemValues);
  EXPECT_THAT(values.Texts(), ElementsAre("4711"));
}

TEST_P(ConfdObject, FailsPastTheEndOfTheList) {
  OpenEither(kThreeItems);
  Values values(4);
  ExpectFailure(cdb_get_objects(sock_, values.data(), 1, 0, 4, "/config/item"), CONFD_ERR_NOEXISTS,
                "/config/item: the list has 3 entries; 4 from position 0 were asked for");
  ExpectFailure(cdb_get_objects(sock_, values.data(), 1, 3, 1, "/config/item"), CONFD_ERR_NOEXISTS,
                "/config/item: the list has 3 entries; 1 from position 3 were asked for");
  EXPECT_EQ(cdb_get_objects(sock_, values.data(), 1, 2147483647, 2147483647, "/config/item"),
            CONFD_ERR);
  EXPECT_THAT(values.Texts(), ElementsAre("4711", "4711", "4711", "4711"));
}

TEST_P(ConfdObject, RefusesNegativeSizesAndPositions) {
  OpenEither(kThreeItems);
  Values values(1);
  for (const auto& [n, ix, nobj] : {std::tuple(-1, 0, 1), {1, -1, 1}, {1, 0, -1}}) {
    ExpectFailure(cdb_get_objects(sock_, values.data(), n, ix, nobj, "/config/item"),
                  CONFD_ERR_BADTYPE,
                  "/config/item: a negative number of values, entries or position");
  }
  EXPECT_THAT(values.Texts(), ElementsAre("4711"));
}

TEST_P(ConfdObject, RefusesEntriesOfWhatIsNoList) {
  OpenEither(kThreeItems);
  Values values(1);
  ExpectFailure(cdb_get_objects(sock_, values.data(), 1, 0, 1, "/config/item{a}"),
                CONFD_ERR_BADPATH, "/config/item{a}: names one entry, not the list");
  ExpectFailure(cdb_get_objects(sock_, values.data(), 1, 0, 1, "/config/colour"), CONFD_ERR_BADTYPE,
                "/config/colour: is not a list");
  EXPECT_THAT(values.Texts(), ElementsAre("4711"));
}

}  // namespace
}  // namespace confd_test
