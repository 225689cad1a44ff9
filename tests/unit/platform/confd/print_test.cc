#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

confd_value_t Int(int number) {
  confd_value_t value = {C_INT32, {}};
  value.val.i32 = number;
  return value;
}

confd_value_t Address(const char* text) {
  confd_value_t value = {C_IPV4, {}};
  inet_pton(AF_INET, text, &value.val.ip);
  return value;
}

// Borrows `text`.
confd_value_t String(std::string& text) {
  confd_value_t value = {C_BUF, {}};
  value.val.buf = {static_cast<unsigned int>(text.size()),
                   reinterpret_cast<unsigned char*>(text.data())};
  return value;
}

confd_value_t Tag(std::uint32_t tag) {
  confd_value_t value = {C_XMLTAG, {}};
  value.val.xmltag = {tag, 0};
  return value;
}

std::string PathText(const confd_hkeypath_t& path) {
  std::array<char, 256> text = {};
  const int length = confd_pp_kpath(text.data(), static_cast<int>(text.size()), &path);
  EXPECT_EQ(length, static_cast<int>(std::string(text.data()).size()));
  return text.data();
}

TEST(ConfdPrint, PrintsEveryType) {
  std::string text = "bare text";
  EXPECT_EQ(Text(String(text)), "bare text");
  EXPECT_EQ(Text(Int(-12)), "-12");
  EXPECT_EQ(Text(Address("10.1.2.3")), "10.1.2.3");
  confd_value_t value = {C_UINT32, {}};
  value.val.u32 = 4294967295U;
  EXPECT_EQ(Text(value), "4294967295");
  value = {C_BOOL, {}};
  EXPECT_EQ(Text(value), "false");
  value.val.boolean = 1;
  EXPECT_EQ(Text(value), "true");
  value = {C_ENUM_VALUE, {}};
  value.val.enumvalue = 2;
  EXPECT_EQ(Text(value), "enum<2>");
  value = {C_IPV4_AND_PLEN, {}};
  value.val.ipv4prefix = {Address("192.168.1.77").val.ip, 24};
  EXPECT_EQ(Text(value), "192.168.1.77/24");
}

TEST(ConfdPrint, JoinsListsWithBlanks) {
  confd_value_t elements[3] = {Int(1), Int(2), Int(3)};
  confd_value_t list = {C_LIST, {}};
  list.val.list = {3, elements};
  EXPECT_EQ(Text(list), "1 2 3");
  list.val.list.size = 0;
  EXPECT_EQ(Text(list), "");
}

TEST(ConfdPrint, CannotPrintWhatDoesNotExist) {
  std::array<char, 8> buf = {"old"};
  const confd_value_t nothing = {C_NOEXISTS, {}};
  EXPECT_LT(confd_pp_value(buf.data(), 8, &nothing), 0);
  EXPECT_STREQ(buf.data(), "");
  EXPECT_STREQ(confd_lasterr(), "a value that does not exist: it cannot be printed");
}

TEST(ConfdPrint, CutsAsSnprintfDoes) {
  std::array<char, 8> buf = {"-------"};
  const confd_value_t value = Int(12345);
  EXPECT_EQ(confd_pp_value(buf.data(), 3, &value), 5);
  EXPECT_STREQ(buf.data(), "12");
  EXPECT_EQ(buf[3], '-');
  EXPECT_EQ(confd_pp_value(buf.data(), 6, &value), 5);
  EXPECT_STREQ(buf.data(), "12345");
  EXPECT_EQ(confd_pp_value(buf.data(), 1, &value), 5);
  EXPECT_STREQ(buf.data(), "");
  EXPECT_EQ(confd_pp_value(nullptr, 0, &value), 5);
}

TEST(ConfdPrint, PrintsTheNameOfATag) {
  const Context context = MakeContext();
  EXPECT_EQ(Text(Tag(confd::TagHash(FindSchema(context, "/shop:config/item")))), "item");
  EXPECT_EQ(Text(Tag(0xdeadbeefU)), "#deadbeef");
}

class ConfdPrintPath : public testing::Test {
 protected:
  confd_value_t TagOf(const char* path) { return Tag(confd::TagHash(FindSchema(context_, path))); }

  Context context_ = MakeContext();
  confd_hkeypath_t path_ = {};
};

TEST_F(ConfdPrintPath, PrintsTheOutermostFirst) {
  std::string key = "r1";
  const confd_value_t end = {C_NOEXISTS, {}};
  path_.len = 6;
  path_.v[5][0] = TagOf("/shop:config");
  path_.v[4][0] = TagOf("/shop:config/item");
  path_.v[3][0] = String(key);
  path_.v[3][1] = end;
  path_.v[2][0] = TagOf("/shop:config/item/part");
  path_.v[1][0] = Address("10.0.0.1");
  path_.v[1][1] = Int(7);
  path_.v[1][2] = end;
  path_.v[0][0] = TagOf("/shop:config/item/part/note");
  EXPECT_EQ(PathText(path_), "/config/item{r1}/part{10.0.0.1 7}/note");
}

TEST_F(ConfdPrintPath, CutsAsSnprintfDoes) {
  path_.len = 1;
  path_.v[0][0] = TagOf("/shop:config");
  std::array<char, 8> buf = {};
  EXPECT_EQ(confd_pp_kpath(buf.data(), 5, &path_), 7);
  EXPECT_STREQ(buf.data(), "/con");
}

TEST_F(ConfdPrintPath, PrintsTheEmptyPathAsTheRoot) { EXPECT_EQ(PathText(path_), "/"); }

TEST_F(ConfdPrintPath, TakesAsManyKeysAsThereIsRoomFor) {
  path_.len = 1;
  for (confd_value_t& key : path_.v[0]) key = Int(1);
  EXPECT_EQ(PathText(path_), "{1 1 1 1 1 1 1 1 1}");
}

TEST_F(ConfdPrintPath, RefusesMalformedPaths) {
  std::array<char, 8> buf = {};
  for (const int len : {-1, MAXDEPTH + 1}) {
    path_.len = len;
    EXPECT_LT(confd_pp_kpath(buf.data(), 8, &path_), 0);
  }
  path_.len = 1;
  path_.v[0][0] = {C_NOEXISTS, {}};
  EXPECT_LT(confd_pp_kpath(buf.data(), 8, &path_), 0);
}

}  // namespace
}  // namespace confd_test
