// Names of outcomes and states, and lists of counts.

#include "protocol/control/outcome.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "protocol/control/interface_state.h"
#include "protocol/control/outcome_counts.h"

namespace {

using dhcp_relay::control::AddOutcomes;
using dhcp_relay::control::CompleteOutcomes;
using dhcp_relay::control::InterfaceState;
using dhcp_relay::control::Name;
using dhcp_relay::control::OutcomeCounts;
using dhcp_relay::control::ReplyOutcome;
using dhcp_relay::control::RequestOutcome;
using dhcp_relay::control::UnmatchedOutcome;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

TEST(OutcomeName, IsThatOfItsEnumerator) {
  EXPECT_EQ(Name(RequestOutcome::kRelayed), "relayed");
  EXPECT_EQ(Name(RequestOutcome::kTooManyHops), "too-many-hops");
  EXPECT_EQ(Name(RequestOutcome::kUntrustedOption), "untrusted-option");
  EXPECT_EQ(Name(RequestOutcome::kSendFailed), "send-failed");
  EXPECT_EQ(Name(ReplyOutcome::kForeignOption), "foreign-option");
  EXPECT_EQ(Name(ReplyOutcome::kSendFailed), "send-failed");
  EXPECT_EQ(Name(UnmatchedOutcome::kNotForUs), "not-for-us");
  EXPECT_EQ(Name(UnmatchedOutcome::kMalformed), "malformed");
}

TEST(OutcomeName, IsInTheListOnceForEachEnumerator) {
  EXPECT_THAT(dhcp_relay::control::RequestOutcomes(),
              SizeIs(dhcp_relay::control::kRequestOutcomes));
  EXPECT_EQ(dhcp_relay::control::RequestOutcomes().back(), Name(RequestOutcome::kSendFailed));
  EXPECT_THAT(dhcp_relay::control::ReplyOutcomes(),
              ElementsAre("relayed", "client-side", "unknown-server", "malformed", "no-option",
                          "foreign-option", "send-failed"));
  EXPECT_THAT(dhcp_relay::control::UnmatchedOutcomes(),
              ElementsAre("no-interface", "not-for-us", "unknown-giaddr", "malformed"));
}

TEST(InterfaceStateName, IsThatOfItsEnumerator) {
  EXPECT_THAT(dhcp_relay::control::InterfaceStates(),
              ElementsAre("up", "down", "missing", "no-address", "no-vrf", "duplicate-address",
                          "no-socket"));
  EXPECT_EQ(Name(InterfaceState::kUp), "up");
  EXPECT_EQ(Name(InterfaceState::kDuplicateAddress), "duplicate-address");
}

class OutcomeCountsTest : public ::testing::Test {
 protected:
  void Add(const std::string& outcome, std::uint64_t count) {
    auto& entry = *list_.Add();
    entry.set_outcome(outcome);
    entry.set_count(count);
  }

  std::vector<std::pair<std::string, std::uint64_t>> List() const {
    std::vector<std::pair<std::string, std::uint64_t>> list;
    for (const auto& entry : list_) list.emplace_back(entry.outcome(), entry.count());
    return list;
  }

  const std::vector<std::string> names_{"relayed", "malformed", "flood"};
  OutcomeCounts list_;
};

TEST_F(OutcomeCountsTest, TravelUnlessTheyAreZero) {
  AddOutcomes(names_, std::vector<std::uint64_t>{7, 0, 1}, list_);
  EXPECT_THAT(List(), ElementsAre(Pair("relayed", 7), Pair("flood", 1)));
  list_.Clear();
  AddOutcomes(names_, std::vector<std::uint64_t>{0, 0, 0}, list_);
  EXPECT_THAT(List(), IsEmpty());
}

TEST_F(OutcomeCountsTest, AreCompletedInTheOrderOfTheNames) {
  Add("flood", 1);
  Add("relayed", 7);
  CompleteOutcomes(names_, list_);
  EXPECT_THAT(List(), ElementsAre(Pair("relayed", 7), Pair("malformed", 0), Pair("flood", 1)));
}

TEST_F(OutcomeCountsTest, OfUnknownNamesComeLast) {
  Add("bewitched", 2);
  Add("relayed", 7);
  Add("abducted", 3);
  CompleteOutcomes(names_, list_);
  EXPECT_THAT(List(), ElementsAre(Pair("relayed", 7), Pair("malformed", 0), Pair("flood", 0),
                                  Pair("bewitched", 2), Pair("abducted", 3)));
}

}  // namespace
