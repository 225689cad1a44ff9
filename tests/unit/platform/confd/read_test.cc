#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

using testing::StrEq;

// The same answers are due whether the data carries its default nodes or not.
class ConfdRead : public ConfdTest, public testing::WithParamInterface<Defaults> {
 protected:
  void OpenEither(const std::string& json) { Open(json, GetParam()); }

  void ExpectFailure(int result, int code, const std::string& text) {
    EXPECT_EQ(result, CONFD_ERR);
    EXPECT_EQ(confd_errno, code);
    EXPECT_THAT(confd_lasterr(), StrEq(text));
  }

  // The failure's text names the leaf between `before` and `behind`.
  void ExpectUnreadable(const std::string& leaf, const char* before, const char* behind) {
    OwnedValue value;
    const std::string path = "/config/types/" + leaf;
    std::string text = path + ": ";
    text.append(before).append(leaf).append(behind);
    ExpectFailure(cdb_get(sock_, value.get(), "%s", path.c_str()), CONFD_ERR_BADTYPE, text);
    EXPECT_EQ(value->type, C_NOEXISTS);
  }

  std::string Get(const char* path) {
    OwnedValue value;
    return cdb_get(sock_, value.get(), "%s", path) == CONFD_OK ? Text(*value.get())
                                                               : confd_lasterr();
  }
};

INSTANTIATE_TEST_SUITE_P(Data, ConfdRead, testing::Values(Defaults::kImplicit, Defaults::kLeftOut),
                         [](const auto& param) {
                           return param.param == Defaults::kImplicit ? "WithDefaults"
                                                                     : "WithoutDefaults";
                         });

constexpr const char* kOneItem = R"({"shop:config": {"item": [{"name": "a"}]}})";

TEST_P(ConfdRead, CountsLeavesWithADefaultAsThere) {
  OpenEither(kOneItem);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/number"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/box/inside"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/mark"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/count"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/word"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{b}/number"), 0);
}

TEST_P(ConfdRead, CountsPlainContainersAsThereAndPresenceContainersOnlyWhenSet) {
  OpenEither(kOneItem);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/box"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/box/deep"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/lid"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/lid/in-lid"), 0);
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "lid": {}}]}})");
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/lid"), 1);
  EXPECT_EQ(Get("/config/item{a}/lid/in-lid"), "9");
}

TEST_P(ConfdRead, AnswersForAnEmptyDatastore) {
  OpenEither("{}");
  EXPECT_EQ(cdb_exists(sock_, "/config"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item[0]"), 0);
  EXPECT_EQ(cdb_num_instances(sock_, "/config/item"), 0);
  EXPECT_EQ(Get("/config/store/open"), "true");
}

TEST_P(ConfdRead, ReadsDefaultsOfEveryKind) {
  OpenEither(kOneItem);
  EXPECT_EQ(Get("/config/item{a}/number"), "-5");
  EXPECT_EQ(Get("/config/item{a}/flag"), "true");
  EXPECT_EQ(Get("/config/item{a}/mode"), "enum<1>");
  EXPECT_EQ(Get("/config/item{a}/mark"), "3 4");
  EXPECT_EQ(Get("/config/size"), "1 2");
}

TEST_P(ConfdRead, PrefersDataToDefaults) {
  OpenEither(R"({"shop:config": {"size": [7], "item": [
    {"name": "a", "number": 2147483647, "flag": false, "mode": "swap", "mark": [9]}]}})");
  EXPECT_EQ(Get("/config/item{a}/number"), "2147483647");
  EXPECT_EQ(Get("/config/item{a}/flag"), "false");
  EXPECT_EQ(Get("/config/item{a}/mode"), "enum<7>");
  EXPECT_EQ(Get("/config/item{a}/mark"), "9");
  EXPECT_EQ(Get("/config/size"), "7");
}

TEST_P(ConfdRead, GivesNoDefaultOfACaseThatWasNotChosen) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "two": "second"}]}})");
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/one"), 0);
  EXPECT_EQ(Get("/config/item{a}/two"), "second");
}

TEST_P(ConfdRead, GivesNoDefaultWhoseConditionFails) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "flag": false}]}})");
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/conditional"), 0);
}

TEST_F(ConfdTest, ReadsConditionalDefaultsThatTheDataCarries) {
  Open(R"({"shop:config": {"item": [{"name": "a"}]}})", Defaults::kImplicit);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/conditional"), 1);
}

TEST_P(ConfdRead, ReadsEveryTypeItKnows) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "count": 4294967295, "number": 3}],
    "types": {"address": "10.0.0.1", "no-zone": "10.0.0.2", "derived": "10.0.0.3",
              "server": "10.0.0.4", "prefix": "192.168.1.77/24", "standard-prefix": "10.0.0.0/8",
              "reference": "a",
              "number-reference": 3, "server-list": ["10.0.0.5", "10.0.0.6"]}}})");
  struct Case {
    const char* path;
    confd_vtype type;
    const char* text;
  };
  for (const Case& c : {
           Case{"/config/item{a}/name", C_BUF, "a"},
           Case{"/config/item{a}/number", C_INT32, "3"},
           Case{"/config/item{a}/count", C_UINT32, "4294967295"},
           Case{"/config/item{a}/flag", C_BOOL, "true"},
           Case{"/config/item{a}/mode", C_ENUM_VALUE, "enum<1>"},
           Case{"/config/types/address", C_IPV4, "10.0.0.1"},
           Case{"/config/types/no-zone", C_IPV4, "10.0.0.2"},
           Case{"/config/types/derived", C_IPV4, "10.0.0.3"},
           Case{"/config/types/server", C_IPV4, "10.0.0.4"},
           Case{"/config/types/prefix", C_IPV4_AND_PLEN, "192.168.1.77/24"},
           Case{"/config/types/standard-prefix", C_BUF, "10.0.0.0/8"},
           Case{"/config/types/reference", C_BUF, "a"},
           Case{"/config/types/number-reference", C_INT32, "3"},
           Case{"/config/types/server-list", C_LIST, "10.0.0.5 10.0.0.6"},
       }) {
    OwnedValue value;
    ASSERT_EQ(cdb_get(sock_, value.get(), "%s", c.path), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(value->type, c.type) << c.path;
    EXPECT_EQ(Text(*value.get()), c.text) << c.path;
  }
}

TEST_P(ConfdRead, ReadsIntegersOfEveryWidth) {
  OpenEither(R"({"shop:numbers": {"i8": -128, "i16": -32768, "i64": "-9223372036854775808",
    "u8": 255, "u16": 65535, "u64": "18446744073709551615"}})");
  const auto get = [this](const char* leaf, confd_vtype type) {
    confd_value_t value = {C_NOEXISTS, {}};
    EXPECT_EQ(cdb_get(sock_, &value, "/numbers/%s", leaf), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(value.type, type) << leaf;
    return value.val;
  };
  EXPECT_EQ(get("i8", C_INT8).i8, INT8_MIN);
  EXPECT_EQ(get("i16", C_INT16).i16, INT16_MIN);
  EXPECT_EQ(get("i64", C_INT64).i64, INT64_MIN);
  EXPECT_EQ(get("u8", C_UINT8).u8, UINT8_MAX);
  EXPECT_EQ(get("u16", C_UINT16).u16, UINT16_MAX);
  EXPECT_EQ(get("u64", C_UINT64).u64, UINT64_MAX);
}

TEST_P(ConfdRead, KnowsTypesByTheExtensionThatTheyOrTheirOriginsCarry) {
  OpenEither(R"({"shop:hosts": {"near": "10.0.0.1", "near-and-short": "10.0.0.2",
    "own": "10.0.0.3", "host-reference": "10.0.0.1", "place-of-host": "10.0.0.4/8"}})");
  for (const auto& [leaf, type] :
       {std::pair("near", C_IPV4), std::pair("near-and-short", C_IPV4), std::pair("own", C_IPV4),
        std::pair("host-reference", C_IPV4), std::pair("place-of-host", C_IPV4_AND_PLEN)}) {
    OwnedValue value;
    ASSERT_EQ(cdb_get(sock_, value.get(), "/hosts/%s", leaf), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(value->type, type) << leaf;
  }
}

TEST_P(ConfdRead, DoesNotKnowTypesByTheirNames) {
  OpenEither(R"({"shop:hosts": {"named-server": "10.0.0.1", "named-address": "10.0.0.2",
    "named-prefix": "10.0.0.3/8"}})");
  for (const char* leaf : {"named-server", "named-address", "named-prefix"}) {
    OwnedValue value;
    ASSERT_EQ(cdb_get(sock_, value.get(), "/hosts/%s", leaf), CONFD_OK) << confd_lasterr();
    EXPECT_EQ(value->type, C_BUF) << leaf;
  }
}

TEST_P(ConfdRead, EndsStringsWithANulThatTheSizeLeavesOut) {
  OpenEither(R"({"shop:config": {"name": "häuser", "colour": [""]}})");
  OwnedValue value;
  ASSERT_EQ(cdb_get(sock_, value.get(), "/config/name"), CONFD_OK);
  EXPECT_EQ(CONFD_GET_BUFSIZE(value.get()), std::strlen("häuser"));
  EXPECT_STREQ(reinterpret_cast<const char*>(CONFD_GET_BUFPTR(value.get())), "häuser");
}

TEST_P(ConfdRead, KeepsTheOrderOfALeafList) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "word": ["z", "", "m"]}]}})");
  OwnedValue value;
  ASSERT_EQ(cdb_get(sock_, value.get(), "/config/item{a}/word"), CONFD_OK);
  ASSERT_EQ(CONFD_GET_LISTSIZE(value.get()), 3U);
  EXPECT_EQ(Text(*value.get()), "z  m");
}

TEST_P(ConfdRead, RefusesTypesThatHaveNoValue) {
  OpenEither(R"({"shop:config": {"types": {"decimal": "1.5", "either": 4, "flags": "red",
                 "fruit": "apple", "nothing": [null]}}})");
  for (const std::string leaf : {"decimal", "either", "flags", "fruit", "nothing"}) {
    ExpectUnreadable(leaf, "the type of '", "' cannot be read");
  }
}

TEST_P(ConfdRead, RefusesATypeWhoseValueIsOneItDoesNotKnow) {
  OpenEither(R"({"shop:hosts": {"strange": "red"}})");
  OwnedValue value;
  ExpectFailure(cdb_get(sock_, value.get(), "/hosts/strange"), CONFD_ERR_BADTYPE,
                "/hosts/strange: the type of 'strange' cannot be read");
}

TEST_P(ConfdRead, RefusesTextsThatAreNoAddresses) {
  OpenEither(R"({"shop:config": {"types": {"address": "10.0.0.1%eth0", "server": "zebra",
                                           "prefix": "10.0.0.1",
                                           "server-list": ["1.1.1.1", "x"]}}})");
  for (const std::string leaf : {"address", "server", "prefix", "server-list"}) {
    ExpectUnreadable(leaf, "the text of '", "' is no value of its type");
  }
}

TEST_P(ConfdRead, FailsForAbsentLeavesAndLeavesTheResult) {
  OpenEither(kOneItem);
  confd_value_t value = {C_INT32, {}};
  value.val.i32 = 42;
  ExpectFailure(cdb_get(sock_, &value, "/config/item{a}/count"), CONFD_ERR_NOEXISTS,
                "/config/item{a}/count: does not exist");
  ExpectFailure(cdb_get(sock_, &value, "/config/item{b}/number"), CONFD_ERR_NOEXISTS,
                "/config/item{b}/number: does not exist");
  ExpectFailure(cdb_get(sock_, &value, "/config/item{a}"), CONFD_ERR_BADTYPE,
                "/config/item{a}: is neither a leaf nor a leaf-list");
  ExpectFailure(cdb_get(sock_, &value, "/config/item{a}/zip"), CONFD_ERR_BADPATH,
                "/config/item{a}/zip: no such node in the schema: 'zip'");
  EXPECT_EQ(Text(value), "42");
}

TEST_P(ConfdRead, ReadsInt32) {
  OpenEither(kOneItem);
  std::int32_t number = 11;
  EXPECT_EQ(cdb_get_int32(sock_, &number, "/config/item{%s}/number", "a"), CONFD_OK);
  EXPECT_EQ(number, -5);
}

TEST_P(ConfdRead, RefusesToReadAnotherTypeAsInt32) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a", "count": 1}]}})");
  std::int32_t number = 11;
  ExpectFailure(cdb_get_int32(sock_, &number, "/config/item{a}/count"), CONFD_ERR_BADTYPE,
                "/config/item{a}/count: the leaf is not of type int32");
  ExpectFailure(cdb_get_int32(sock_, &number, "/config/size"), CONFD_ERR_BADTYPE,
                "/config/size: is not a leaf");
  ExpectFailure(cdb_get_int32(sock_, &number, "/config/item{b}/number"), CONFD_ERR_NOEXISTS,
                "/config/item{b}/number: does not exist");
  EXPECT_EQ(number, 11);
}

TEST_P(ConfdRead, ReadsAnAddressWithItsHostBits) {
  OpenEither(R"({"shop:config": {"types": {"prefix": "192.168.1.77/0"}}})");
  confd_ipv4_prefix prefix = {};
  EXPECT_EQ(cdb_get_ipv4_and_plen(sock_, &prefix, "/config/types/prefix"), CONFD_OK);
  EXPECT_EQ(ntohl(prefix.ip.s_addr), 0xc0a8014dU);
  EXPECT_EQ(prefix.len, 0);
}

TEST_P(ConfdRead, FailsToReadAnAddressThatIsNone) {
  for (const char* text : {"10.0.0.1/33", "10.0.0.1/", "10.0.0.1/-1", "/24", "10.0.0/24",
                           "10.0.0.1/24/1", "100.100.100.100.100/24", "10.0.0.1/256"}) {
    OpenEither(std::string(R"({"shop:config": {"types": {"prefix": ")") + text + "\"}}}");
    confd_ipv4_prefix prefix = {{7}, 7};
    ExpectFailure(cdb_get_ipv4_and_plen(sock_, &prefix, "/config/types/prefix"), CONFD_ERR_BADTYPE,
                  "/config/types/prefix: the text of 'prefix' is no value of its type");
    EXPECT_EQ(prefix.len, 7);
    EXPECT_EQ(prefix.ip.s_addr, 7U);
  }
}

TEST_P(ConfdRead, ReadsStringsThatFitWithTheirNul) {
  OpenEither(R"({"shop:config": {"name": "12345"}})");
  char text[6] = "";
  EXPECT_EQ(cdb_get_str(sock_, text, sizeof text, "/config/name"), CONFD_OK);
  EXPECT_STREQ(text, "12345");
}

TEST_P(ConfdRead, NeverCutsAString) {
  OpenEither(R"({"shop:config": {"name": "12345"}})");
  char text[6] = "other";
  for (const int size : {5, 1, 0, -1}) {
    ExpectFailure(cdb_get_str(sock_, text, size, "/config/name"), CONFD_ERR_BADTYPE,
                  "/config/name: the string of 5 bytes and its end do not fit a buffer of " +
                      std::to_string(size));
    EXPECT_STREQ(text, "other");
  }
}

TEST_P(ConfdRead, ReadsAReferenceToAStringAsAString) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a"}], "types": {"reference": "a"}}})");
  char text[64] = "";
  EXPECT_EQ(cdb_get_str(sock_, text, sizeof text, "/config/types/reference"), CONFD_OK);
  EXPECT_STREQ(text, "a");
}

TEST_P(ConfdRead, RefusesToReadAnotherTypeAsString) {
  OpenEither(kOneItem);
  char text[64] = "other";
  ExpectFailure(cdb_get_str(sock_, text, sizeof text, "/config/item{a}/mode"), CONFD_ERR_BADTYPE,
                "/config/item{a}/mode: the leaf is not of type string");
  ExpectFailure(cdb_get_str(sock_, text, sizeof text, "/config/item{a}"), CONFD_ERR_BADTYPE,
                "/config/item{a}: is not a leaf");
  EXPECT_STREQ(text, "other");
}

TEST_P(ConfdRead, CountsEntries) {
  OpenEither(R"({"shop:config": {"item": [{"name": "a"}, {"name": "b", "part": [
    {"row": "x", "column": 1}]}, {"name": "c"}]}})");
  EXPECT_EQ(cdb_num_instances(sock_, "/config/item"), 3);
  EXPECT_EQ(cdb_num_instances(sock_, "/config/item{a}/part"), 0);
  EXPECT_EQ(cdb_num_instances(sock_, "/config/item{b}/part"), 1);
  EXPECT_EQ(cdb_num_instances(sock_, "/config/item{absent}/part"), 0);
}

TEST_P(ConfdRead, RefusesToCountWhatIsNoList) {
  OpenEither(kOneItem);
  ExpectFailure(cdb_num_instances(sock_, "/config/name"), CONFD_ERR_BADTYPE,
                "/config/name: is not a list");
  ExpectFailure(cdb_num_instances(sock_, "/config/item{a}"), CONFD_ERR_BADPATH,
                "/config/item{a}: names one entry, not the list");
  ExpectFailure(cdb_num_instances(sock_, "/nowhere"), CONFD_ERR_BADPATH,
                "/nowhere: no such node in the schema: 'nowhere'");
}

}  // namespace
}  // namespace confd_test
