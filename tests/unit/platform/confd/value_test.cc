#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

using testing::HasSubstr;
using testing::StrEq;

class ConfdValue : public testing::Test {
 protected:
  // The text of the value that `text` becomes in this leaf; "" when it becomes none.
  std::string Convert(const std::string& leaf, const char* text) {
    OwnedValue value;
    const bool good = confd::ValueFromCanonical(FindSchema(context_, leaf), text, value.get());
    EXPECT_EQ(good, value->type != C_NOEXISTS);
    type_ = value->type;
    return good ? Text(*value.get()) : "";
  }

  void ExpectRefused(const std::string& leaf, const char* text) {
    confd::SetLastError(0, "");
    EXPECT_EQ(Convert(leaf, text), "") << leaf;
    EXPECT_EQ(confd_errno, CONFD_ERR_BADTYPE);
    EXPECT_THAT(confd_lasterr(), HasSubstr(leaf));
  }

  Context context_ = MakeContext();
  confd_vtype type_ = C_NOEXISTS;
};

TEST_F(ConfdValue, ConvertsCanonicalTexts) {
  struct Case {
    const char* leaf;
    const char* text;
    confd_vtype type;
    const char* printed;
  };
  for (const Case& c : {
           Case{"/shop:config/name", "some text", C_BUF, "some text"},
           Case{"/shop:config/name", "", C_BUF, ""},
           Case{"/shop:config/item/number", "-2147483648", C_INT32, "-2147483648"},
           Case{"/shop:config/item/count", "4294967295", C_UINT32, "4294967295"},
           Case{"/shop:numbers/i8", "-128", C_INT8, "-128"},
           Case{"/shop:numbers/i16", "-32768", C_INT16, "-32768"},
           Case{"/shop:numbers/i64", "-9223372036854775808", C_INT64, "-9223372036854775808"},
           Case{"/shop:numbers/u8", "255", C_UINT8, "255"},
           Case{"/shop:numbers/u16", "65535", C_UINT16, "65535"},
           Case{"/shop:numbers/u64", "18446744073709551615", C_UINT64, "18446744073709551615"},
           Case{"/shop:config/item/flag", "true", C_BOOL, "true"},
           Case{"/shop:config/item/flag", "false", C_BOOL, "false"},
           Case{"/shop:config/item/mode", "swap", C_ENUM_VALUE, "enum<7>"},
           Case{"/shop:config/types/derived", "1.2.3.4", C_IPV4, "1.2.3.4"},
           Case{"/shop:config/types/server", "1.2.3.4", C_IPV4, "1.2.3.4"},
           Case{"/shop:config/types/prefix", "1.2.3.4/8", C_IPV4_AND_PLEN, "1.2.3.4/8"},
           Case{"/shop:config/types/reference", "a", C_BUF, "a"},
           Case{"/shop:config/types/number-reference", "12", C_INT32, "12"},
           Case{"/shop:config/types/server-list", "1.2.3.4", C_IPV4, "1.2.3.4"},
       }) {
    EXPECT_EQ(Convert(c.leaf, c.text), c.printed) << c.leaf;
    EXPECT_EQ(type_, c.type) << c.leaf;
  }
}

TEST_F(ConfdValue, RefusesTextsOfNoValue) {
  ExpectRefused("/shop:config/item/number", "2147483648");
  ExpectRefused("/shop:config/item/number", "1x");
  ExpectRefused("/shop:config/item/number", "");
  ExpectRefused("/shop:config/item/count", "-1");
  ExpectRefused("/shop:numbers/i8", "128");
  ExpectRefused("/shop:numbers/u8", "256");
  ExpectRefused("/shop:numbers/u16", "-1");
  ExpectRefused("/shop:numbers/u64", "18446744073709551616");
  ExpectRefused("/shop:config/item/flag", "yes");
  ExpectRefused("/shop:config/item/mode", "lift");
  ExpectRefused("/shop:config/types/server", "1.2.3");
  ExpectRefused("/shop:config/types/prefix", "1.2.3.4");
  ExpectRefused("/shop:config/name", nullptr);
}

TEST_F(ConfdValue, RefusesLeavesAndNodesWithoutAValue) {
  ExpectRefused("/shop:config/types/decimal", "1.5");
  EXPECT_THAT(confd_lasterr(),
              StrEq("/shop:config/types/decimal: the leaf's type has no value here"));
  ExpectRefused("/shop:config/types/either", "1");
  ExpectRefused("/shop:config/item", "a");
  EXPECT_THAT(confd_lasterr(), StrEq("/shop:config/item: not a leaf"));
}

TEST_F(ConfdValue, IsReleasedOnceHoweverOftenAsked) {
  confd_value_t value = {C_NOEXISTS, {}};
  ASSERT_TRUE(confd::ValueFromCanonical(FindSchema(context_, "/shop:config/name"), "text", &value));
  confd_free_value(&value);
  EXPECT_EQ(value.type, C_NOEXISTS);
  confd_free_value(&value);
  EXPECT_EQ(value.type, C_NOEXISTS);
  confd_free_value(nullptr);
}

TEST_F(ConfdValue, IsReleasedWithAllThatItHolds) {
  const int sock = confd::OpenSession(std::make_shared<confd::Snapshot>(
      context_,
      ParseData(context_, R"({"shop:config": {"colour": ["red", "blue"]}})", Defaults::kImplicit)));
  confd_value_t value = {C_NOEXISTS, {}};
  ASSERT_EQ(cdb_get(sock, &value, "/config/colour"), CONFD_OK);
  ASSERT_EQ(CONFD_GET_LISTSIZE(&value), 2U);
  confd_free_value(&value);
  EXPECT_EQ(value.type, C_NOEXISTS);
  confd_free_value(&value);
  confd::CloseSession(sock);
}

TEST(ConfdValueAccess, GivesTheMembersOfEachType) {
  confd_value_t data[1] = {{C_BOOL, {}}};
  data[0].val.boolean = 1;
  EXPECT_EQ(CONFD_GET_BOOL(&data[0]), 1);
  data[0].type = C_UINT32;
  data[0].val.u32 = 12;
  EXPECT_EQ(CONFD_GET_UINT32(&data[0]), 12U);
}

TEST(ConfdValueAccess, GivesIntegersOfEveryWidth) {
  confd_value_t value = {C_INT8, {}};
  CONFD_GET_INT8(&value) = INT8_MIN;
  EXPECT_EQ(value.val.i8, INT8_MIN);
  value = {C_INT16, {}};
  CONFD_GET_INT16(&value) = INT16_MIN;
  EXPECT_EQ(value.val.i16, INT16_MIN);
  value = {C_INT64, {}};
  CONFD_GET_INT64(&value) = INT64_MIN;
  EXPECT_EQ(value.val.i64, INT64_MIN);
  value = {C_UINT8, {}};
  CONFD_GET_UINT8(&value) = UINT8_MAX;
  EXPECT_EQ(value.val.u8, UINT8_MAX);
  value = {C_UINT16, {}};
  CONFD_GET_UINT16(&value) = UINT16_MAX;
  EXPECT_EQ(value.val.u16, UINT16_MAX);
  value = {C_UINT64, {}};
  CONFD_GET_UINT64(&value) = UINT64_MAX;
  EXPECT_EQ(value.val.u64, UINT64_MAX);
}

TEST(ConfdValueAccessDeathTest, EndsTheProcessNamingTheExpression) {
  confd_value_t data[1] = {{C_NOEXISTS, {}}};
  EXPECT_DEATH(
      { [[maybe_unused]] const int value = CONFD_GET_BOOL(&data[0]); },
      "Assertion `\\(&data\\[0\\]\\)->type == C_BOOL' failed");
  EXPECT_DEATH(
      { [[maybe_unused]] const auto value = CONFD_GET_IPV4(&data[0]); },
      "Assertion `\\(&data\\[0\\]\\)->type == C_IPV4' failed");
}

}  // namespace
}  // namespace confd_test
