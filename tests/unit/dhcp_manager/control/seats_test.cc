// Who may hold a connection to the control socket.

#include "dhcp_manager/control/seats.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace {

using dhcp_manager::Seats;

constexpr uid_t kRoot = 0;
constexpr uid_t kUser = 1000;

// Takes seats for a user until there are no more, and says how many there were.
std::size_t TakeAll(Seats& seats, uid_t user) {
  std::size_t taken = 0;
  while (taken < 1000 && seats.Take(user)) ++taken;
  return taken;
}

TEST(SeatsTest, AreSoManyForEachUser) {
  Seats seats;
  EXPECT_EQ(TakeAll(seats, kUser), Seats::kPerUser);
  EXPECT_EQ(TakeAll(seats, kUser + 1), Seats::kPerUser);
}

TEST(SeatsTest, OfAllUsersTogetherLeaveThoseOfRoot) {
  Seats seats;
  std::size_t taken = 0;
  for (uid_t user = kUser; user < kUser + 10; ++user) taken += TakeAll(seats, user);
  EXPECT_EQ(taken, Seats::kOfOthers);
  EXPECT_EQ(TakeAll(seats, kRoot), Seats::kPerUser);
}

TEST(SeatsTest, OfRootAreNotThoseOfOthers) {
  Seats seats;
  TakeAll(seats, kRoot);
  std::size_t taken = 0;
  for (uid_t user = kUser; user < kUser + 10; ++user) taken += TakeAll(seats, user);
  EXPECT_EQ(taken, Seats::kOfOthers);
}

TEST(SeatsTest, ThatWereGivenBackAreFree) {
  Seats seats;
  for (const uid_t user : {kRoot, kUser, kUser + 1, kUser + 2}) TakeAll(seats, user);
  EXPECT_FALSE(seats.Take(kUser + 2));
  seats.Leave(kUser);
  EXPECT_TRUE(seats.Take(kUser + 2));
  EXPECT_FALSE(seats.Take(kRoot));
  seats.Leave(kRoot);
  EXPECT_TRUE(seats.Take(kRoot));
}

}  // namespace
