#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

constexpr int kMany = 4094;

// `entry(i)` for all i below `count`.
template <typename Entry>
std::string ListOf(int count, Entry entry) {
  std::string text = "[";
  for (int i = 0; i < count; ++i) {
    if (i > 0) text += ',';
    text += entry(i);
  }
  return text + "]";
}

std::string ManyItems() {
  return R"({"shop:config": {"item": )" +
         ListOf(kMany,
                [](int i) {
                  return R"({"name": "i)" + std::to_string(i) + R"(", "count": )" +
                         std::to_string(i) +
                         R"(, "part": [{"row": "r", "column": 1}, {"row": "r", "column": 2}]})";
                }) +
         "}}";
}

class ConfdLongList : public ConfdTest {
 protected:
  std::string Name(const char* path, int i) {
    OwnedValue value;
    EXPECT_EQ(cdb_get(sock_, value.get(), path, i), CONFD_OK) << confd_lasterr();
    return Text(*value.get());
  }
};

TEST_F(ConfdLongList, FindsEveryEntryByKey) {
  Open(ManyItems());
  for (int i = 0; i < kMany; ++i) {
    ASSERT_EQ(Name("/config/item{i%d}/count", i), std::to_string(i));
    ASSERT_EQ(cdb_exists(sock_, "/config/item{i%d}/part{r 2}", i), 1);
    ASSERT_EQ(cdb_exists(sock_, "/config/item{i%d}/part{r 3}", i), 0);
  }
  EXPECT_EQ(cdb_exists(sock_, "/config/item{i%d}", kMany), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{i}"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{}"), 0);
}

TEST_F(ConfdLongList, FindsEveryEntryByPosition) {
  Open(ManyItems());
  std::vector<confd_value_t> names(kMany);
  ASSERT_GT(cdb_get_objects(sock_, names.data(), 1, 0, kMany, "/config/item"), 0);
  for (int i = 0; i < kMany; ++i) {
    confd_value_t& name = names[static_cast<std::size_t>(i)];
    EXPECT_EQ(Name("/config/item[%d]/name", i), Text(name));
    confd_free_value(&name);
  }
  EXPECT_EQ(cdb_exists(sock_, "/config/item[%d]", kMany), 0);
}

TEST_F(ConfdLongList, CountsItself) {
  Open(ManyItems());
  EXPECT_EQ(cdb_num_instances(sock_, "/config/item"), kMany);
  EXPECT_EQ(cdb_num_instances(sock_, "/config/item{i77}/part"), 2);
}

TEST_F(ConfdLongList, ReadsFromAnyPosition) {
  Open(R"({"shop:config": {"item": [{"name": "a", "part": )" +
       ListOf(kMany, [](int i) { return R"({"row": "r", "column": )" + std::to_string(i) + "}"; }) +
       "}]}}");
  confd_value_t values[4] = {};
  ASSERT_EQ(cdb_get_objects(sock_, values, 2, kMany - 2, 2, "/config/item{a}/part"), 3);
  EXPECT_EQ(CONFD_GET_INT32(&values[1]), kMany - 2);
  EXPECT_EQ(CONFD_GET_INT32(&values[3]), kMany - 1);
  for (confd_value_t& value : values) confd_free_value(&value);
  EXPECT_EQ(cdb_get_objects(sock_, values, 2, kMany - 1, 2, "/config/item{a}/part"), CONFD_ERR);
}

TEST_F(ConfdLongList, FindsSiblingsBehindALongListInsideAnEntry) {
  Open(R"({"shop:config": {"item": [{"name": "a", "mode": "swap", "part": )" +
       ListOf(kMany,
              [](int i) { return R"({"row": "r)" + std::to_string(i) + R"(", "column": 1})"; }) +
       "}]}}");
  EXPECT_EQ(Name("/config/item{a}/mode", 0), "enum<7>");
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/lid"), 0);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/part{r4093 1}"), 1);
  EXPECT_EQ(cdb_exists(sock_, "/config/item{a}/part{r4094 1}"), 0);
}

TEST_F(ConfdLongList, FindsNodesBehindALongListAtTheTop) {
  Open(R"({"shop:top": )" +
       ListOf(kMany, [](int i) { return R"({"id": )" + std::to_string(i) + "}"; }) +
       R"(, "shop:last": {"word": "w"}})");
  EXPECT_EQ(Name("/last/word", 0), "w");
  EXPECT_EQ(Name("/top{%d}/id", 4000), "4000");
  EXPECT_EQ(cdb_num_instances(sock_, "/top"), kMany);
  EXPECT_EQ(cdb_exists(sock_, "/config/name"), 0);
}

// Sanitizers take an allocation of this size for a mistake and end the process.
#ifndef __SANITIZE_ADDRESS__
TEST_F(ConfdLongList, FailsWhenMemoryRunsOut) {
  Open(ManyItems());
  confd_value_t value = {C_NOEXISTS, {}};
  EXPECT_EQ(cdb_get_objects(sock_, &value, INT_MAX, 0, kMany, "/config/item"), CONFD_ERR);
  EXPECT_EQ(confd_errno, CONFD_ERR_MALLOC);
  EXPECT_STREQ(confd_lasterr(), "out of memory");
  EXPECT_EQ(value.type, C_NOEXISTS);
  EXPECT_EQ(cdb_exists(sock_, "/config/item[0]"), 1);
}
#endif

// Around the size from which on lists are indexed.
TEST_F(ConfdLongList, AnswersAlikeForEverySize) {
  for (int size = 0; size <= 20; ++size) {
    Open(R"({"shop:config": {"item": )" +
         ListOf(size, [](int i) { return R"({"name": "i)" + std::to_string(i) + "\"}"; }) + "}}");
    EXPECT_EQ(cdb_num_instances(sock_, "/config/item"), size);
    for (int i = 0; i < size; ++i) EXPECT_EQ(cdb_exists(sock_, "/config/item{i%d}", i), 1);
    for (int i = 0; i < size; ++i) EXPECT_EQ(cdb_exists(sock_, "/config/item[%d]", i), 1);
    EXPECT_EQ(cdb_exists(sock_, "/config/item{i%d}", size), 0);
    EXPECT_EQ(cdb_exists(sock_, "/config/item[%d]", size), 0);
  }
}

}  // namespace
}  // namespace confd_test
