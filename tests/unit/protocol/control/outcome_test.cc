#include "protocol/control/outcome.h"

#include <gtest/gtest.h>

namespace {

using dhcp_relay::control::Name;
using dhcp_relay::control::ReplyOutcome;
using dhcp_relay::control::RequestOutcome;
using dhcp_relay::control::UnmatchedOutcome;

TEST(OutcomeTest, EveryOutcomeIsCalledAsItsEnumerator) {
  EXPECT_EQ(Name(RequestOutcome::kRelayed), "relayed");
  EXPECT_EQ(Name(RequestOutcome::kTooManyHops), "too-many-hops");
  EXPECT_EQ(Name(RequestOutcome::kUntrustedOption), "untrusted-option");
  EXPECT_EQ(Name(RequestOutcome::kSendFailed), "send-failed");
  EXPECT_EQ(Name(ReplyOutcome::kForeignOption), "foreign-option");
  EXPECT_EQ(Name(ReplyOutcome::kSendFailed), "send-failed");
  EXPECT_EQ(Name(UnmatchedOutcome::kNotForUs), "not-for-us");
  EXPECT_EQ(Name(UnmatchedOutcome::kMalformed), "malformed");
}

}  // namespace
