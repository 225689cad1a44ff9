#include "platform/confd/src/format.h"

#include <gmock/gmock.h>

#include <climits>
#include <cstdarg>
#include <string>
#include <string_view>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

using testing::HasSubstr;

class ConfdFormat : public ConfdTest {
 protected:
  ConfdFormat() {
    Open(R"({"shop:config": {"item": [{"name": "-7"}, {"name": "4294967295"}, {"name": "ff"},
                                      {"name": "50%"}, {"name": "a b"}]}})");
  }

  void ExpectRefused(int result, const std::string& text) {
    EXPECT_EQ(result, CONFD_ERR);
    EXPECT_EQ(confd_errno, CONFD_ERR_BADPATH);
    EXPECT_THAT(confd_lasterr(), HasSubstr(text));
  }
};

TEST_F(ConfdFormat, ExpandsEveryConversionItKnows) {
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%d}", -7), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%i}", -7), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%u}", UINT_MAX), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%x}", 255U), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%d%%}", 50), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/%s{%s %s}", "item", "a", "b"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%s}", ""), 0);
}

std::string ExpandedTwice(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string texts;
  for (int i = 0; i < 2; ++i) {
    confd::PathBuffer buffer;
    std::string_view path;
    EXPECT_TRUE(confd::FormatPath(fmt, args, buffer, &path));
    texts += path;
  }
  va_end(args);
  return texts;
}

// A list that one function reads and another goes on with is not the same on every machine.
TEST_F(ConfdFormat, LeavesTheArgumentsToTheCaller) {
  EXPECT_EQ(ExpandedTwice("/%s{%d %s}", "a", 1, "b"), "/a{1 b}/a{1 b}");
}

TEST_F(ConfdFormat, ExpandsTheExtremesOfInt) {
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%d}", INT_MIN), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%x}", UINT_MAX), 0);
}

TEST_F(ConfdFormat, TakesAWholePathAsArgument) {
  EXPECT_EQ(cdb_exists(sock_, "%s", "/config/item{50%}"), 1);
}

TEST_F(ConfdFormat, RefusesToWriteThroughAnArgument) {
  int written = 77;
  ExpectRefused(cdb_exists(sock_, "/config/item{%n}", &written), "the conversion '%n'");
  EXPECT_EQ(written, 77);
}

TEST_F(ConfdFormat, RefusesEveryOtherConversion) {
  for (const char* fmt : {"/config/item{%c}", "/config/item{%p}", "/config/item{%5d}",
                          "/config/item{%-s}", "/config/item{%.3s}", "/config/item{%ld}",
                          "/config/item{%lu}", "/config/item{%f}", "/config/item{%*d}"}) {
    ExpectRefused(cdb_exists(sock_, fmt, 1, 1), "is not supported; paths take %s %d %i %u %x %%");
    EXPECT_THAT(confd_lasterr(), HasSubstr(fmt));
  }
}

TEST_F(ConfdFormat, RefusesAPercentSignAtTheEnd) {
  ExpectRefused(cdb_exists(sock_, "/config%"), "a '%' at the end");
}

TEST_F(ConfdFormat, RefusesANullString) {
  ExpectRefused(cdb_exists(sock_, "/config/item{%s}", static_cast<const char*>(nullptr)),
                "the argument of a %s is null");
}

TEST_F(ConfdFormat, RefusesANullFormat) {
  ExpectRefused(cdb_exists(sock_, nullptr), "the path is null");
}

TEST_F(ConfdFormat, TakesAPathOfTheFullLengthAndNoByteMore) {
  const std::string frame = "/config/item{}";
  const std::string longest(4096 - frame.size(), 'k');
  EXPECT_EQ(cdb_exists(sock_, "/config/item{%s}", longest.c_str()), 0);
  EXPECT_EQ(cdb_exists(sock_, ("/config/item{" + longest + "}").c_str()), 0);
  ExpectRefused(cdb_exists(sock_, "/config/item{k%s}", longest.c_str()), "longer than 4096 bytes");
  ExpectRefused(cdb_exists(sock_, ("/config/item{k" + longest + "}").c_str()),
                "longer than 4096 bytes");
}

TEST_F(ConfdFormat, RefusesEachConversionThatOverflowsThePath) {
  const std::string almost = "/config/item{" + std::string(4096 - 13, 'k');
  ExpectRefused(cdb_exists(sock_, (almost + "%d").c_str(), 5), "longer than 4096 bytes");
  ExpectRefused(cdb_exists(sock_, (almost + "%%").c_str()), "longer than 4096 bytes");
  ExpectRefused(cdb_exists(sock_, (almost + "%x").c_str(), 5), "longer than 4096 bytes");
}

}  // namespace
}  // namespace confd_test
