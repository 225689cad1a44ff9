// The limit of each client.

#include "dhcp_manager/datapath/client_guard.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>

namespace {

using dhcp_manager::ClientGuard;
using std::chrono::milliseconds;

using Address = std::array<std::uint8_t, 6>;

class ClientGuardTest : public ::testing::Test {
 protected:
  static Address Number(std::uint32_t number) {
    Address address{2};
    std::memcpy(&address[2], &number, sizeof(number));
    return address;
  }
  bool Take(const Address& address, int link = 5) { return guard_.Take(link, address, now_); }

  ClientGuard guard_{{.rate = 1, .burst = 2}};
  ClientGuard::Clock::time_point now_{std::chrono::hours(1)};
};

TEST_F(ClientGuardTest, LimitsEachClientByItself) {
  EXPECT_TRUE(Take(Number(1)));
  EXPECT_TRUE(Take(Number(1)));
  EXPECT_FALSE(Take(Number(1)));
  EXPECT_TRUE(Take(Number(2)));
  now_ += milliseconds(1001);
  EXPECT_TRUE(Take(Number(1)));
  EXPECT_FALSE(Take(Number(1)));
}

TEST_F(ClientGuardTest, TheSameAddressOnAnotherLinkIsAnotherClient) {
  Take(Number(1));
  Take(Number(1));
  EXPECT_FALSE(Take(Number(1)));
  EXPECT_TRUE(Take(Number(1), 6));
}

TEST_F(ClientGuardTest, AddressesOfOtherSizesAreOtherClients) {
  const Address address = Number(1);
  EXPECT_TRUE(guard_.Take(5, {address.data(), 0}, now_));
  EXPECT_TRUE(guard_.Take(5, {address.data(), 5}, now_));
  Take(address);
  Take(address);
  EXPECT_FALSE(Take(address));
  EXPECT_TRUE(guard_.Take(5, {address.data(), 5}, now_));
}

TEST_F(ClientGuardTest, NoClientIsLimitedForWhatMadeUpClientsSend) {
  constexpr std::uint32_t kMany = 4 * ClientGuard::kSets * ClientGuard::kWays;
  for (std::uint32_t number = 0; number < kMany; ++number) {
    now_ += std::chrono::microseconds(1);
    ASSERT_TRUE(Take(Number(number))) << number;
  }
}

TEST_F(ClientGuardTest, AClientThatKeepsSendingIsNotForgottenForMadeUpOnes) {
  Take(Number(0));
  Take(Number(0));
  for (std::uint32_t number = 1; number < 4 * ClientGuard::kSets * ClientGuard::kWays; ++number) {
    now_ += std::chrono::nanoseconds(1);
    Take(Number(number));
    if (number % 64 == 0) {
      ASSERT_FALSE(Take(Number(0))) << number;
    }
  }
}

}  // namespace
