#include <gtest/gtest.h>

#include <vx/schema_hash.h>

namespace {

TEST(SchemaHash, TagsHaveTheNumbersProgramsKnowThemBy) {
  EXPECT_EQ(vx_schema::kTagRelay, 0x75f2e918U);
  EXPECT_EQ(vx_schema::kTagVrf, 0x4c5f3e78U);
  EXPECT_EQ(vx_schema::kTagIpv4, 0x0ffa39e6U);
  EXPECT_EQ(vx_schema::kTagAddress, 0x61fa2cdbU);
  EXPECT_EQ(vx_schema::kTagInterface, 0x0d34ee32U);
  EXPECT_EQ(vx_schema::kTagIfOption, 0x0579c48fU);
  EXPECT_EQ(vx_schema::kTagCheck, 0x7f1cbc0cU);
  EXPECT_EQ(vx_schema::kTagOption, 0x0fcf092bU);
  EXPECT_EQ(vx_schema::kTagTrusted, 0x33ef8338U);
  EXPECT_EQ(vx_schema::kTagPolicy, 0x726b9f7bU);
}

TEST(SchemaHash, NamespacesHaveTheNumbersProgramsKnowThemBy) {
  EXPECT_EQ(vx_schema::kNsDhcpRelay, 156912916U);
  EXPECT_EQ(vx_schema::kNsInterface, 328607681U);
}

}  // namespace
