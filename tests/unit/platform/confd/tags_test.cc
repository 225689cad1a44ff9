#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <string>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

TEST(ConfdTags, TakesTheHashThatTheModelFixes) {
  const Context context = MakeContext();
  EXPECT_EQ(confd::TagHash(FindSchema(context, "/shop:config/item")), 0x11112222U);
  EXPECT_EQ(confd::TagHash(FindSchema(context, "/shop:config/item/box")), 287454020U);
}

// Test values of the FNV-1a function are published with it.
TEST(ConfdTags, HashesTheNameOfOtherNodes) {
  ly_ctx* raw = nullptr;
  ASSERT_EQ(ly_ctx_new(nullptr, 0, &raw), LY_SUCCESS);
  const std::shared_ptr<ly_ctx> context(raw, ly_ctx_destroy);
  const char* module =
      "module foobar { namespace urn:f; prefix f; leaf a { type string; }"
      " leaf foobar { type string; } }";
  ASSERT_EQ(lys_parse_mem(raw, module, LYS_IN_YANG, nullptr), LY_SUCCESS);
  EXPECT_EQ(confd::TagHash(FindSchema(context, "/foobar:a")), 0xe40c292cU);
  EXPECT_EQ(confd::TagHash(FindSchema(context, "/foobar:foobar")), 0xbf9cf968U);
  EXPECT_EQ(confd::NamespaceHash(FindSchema(context, "/foobar:a")->module), 0xbf9cf968U);
}

TEST(ConfdTags, TakesTheNamespaceHashThatTheModelFixes) {
  const Context context = MakeContext();
  EXPECT_EQ(confd::NamespaceHash(FindSchema(context, "/shop:config")->module), 0x01020304U);
}

TEST(ConfdTags, GivesAugmentedNodesTheNamespaceOfTheirOwnModule) {
  const Context context = MakeContext();
  const lysc_node* extra = FindSchema(context, "/shop:config/shop-extras:extra");
  EXPECT_NE(confd::NamespaceHash(extra->module), 0x01020304U);
}

TEST(ConfdTags, FollowsTheSchemaThatTakesTheOldOnesPlace) {
  for (const std::string number : {"0x00000001", "0x00000002", "0xffffffff"}) {
    ly_ctx* raw = nullptr;
    ASSERT_EQ(ly_ctx_new(nullptr, 0, &raw), LY_SUCCESS);
    const std::shared_ptr<ly_ctx> context(raw, ly_ctx_destroy);
    const std::string numbered =
        "module m { namespace urn:m; prefix m; import vx-schema { prefix v; }"
        " leaf a { v:tag-hash " +
        number + "; type string; } }";
    const char* schema =
        "module vx-schema { namespace urn:s; prefix s; extension tag-hash { argument n; } }";
    ASSERT_EQ(lys_parse_mem(raw, schema, LYS_IN_YANG, nullptr), LY_SUCCESS);
    ASSERT_EQ(lys_parse_mem(raw, numbered.c_str(), LYS_IN_YANG, nullptr), LY_SUCCESS);
    EXPECT_EQ(confd::TagHash(FindSchema(context, "/m:a")),
              static_cast<std::uint32_t>(std::stoul(number, nullptr, 16)));
  }
}

}  // namespace
}  // namespace confd_test
