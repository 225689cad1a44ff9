#include <gtest/gtest.h>

#include <limidmgr/limidmgr.h>

namespace {

constexpr limid_t kUntouched = 0xDEADBEEF;

TEST(LimidFromSuffix, HoldsTheKindAboveTheNumber) {
  limid_t id = 0;
  ASSERT_EQ(limid_from_intfname_suffix(&id, "7", limid_type_vrf), 0);
  EXPECT_EQ(id, 0x01000007U);
  EXPECT_EQ(limid_type_of(id), static_cast<unsigned>(limid_type_vrf));
  EXPECT_EQ(limid_number_of(id), 7U);
}

TEST(LimidFromSuffix, TakesNumbersOf24Bits) {
  limid_t id = 0;
  EXPECT_EQ(limid_from_intfname_suffix(&id, "0", limid_type_vrf), 0);
  EXPECT_EQ(id, 0x01000000U);
  EXPECT_EQ(limid_from_intfname_suffix(&id, "16777215", limid_type_vrf), 0);
  EXPECT_EQ(id, 0x01FFFFFFU);
}

TEST(LimidFromSuffix, LeavesTheIdentifierAloneWhenTheSuffixIsNoSuchNumber) {
  for (const char* suffix : {"", "-1", "+1", " 1", "1 ", "1a", "0x1", "16777216", "4294967296"}) {
    limid_t id = kUntouched;
    EXPECT_EQ(limid_from_intfname_suffix(&id, suffix, limid_type_vrf), -1) << suffix;
    EXPECT_EQ(id, kUntouched) << suffix;
  }
}

TEST(LimidFromSuffix, RefusesNullAndUnknownKinds) {
  limid_t id = kUntouched;
  EXPECT_EQ(limid_from_intfname_suffix(&id, nullptr, limid_type_vrf), -1);
  EXPECT_EQ(limid_from_intfname_suffix(nullptr, "1", limid_type_vrf), -1);
  EXPECT_EQ(limid_from_intfname_suffix(&id, "1", static_cast<limid_type_t>(0)), -1);
  EXPECT_EQ(id, kUntouched);
}

}  // namespace
