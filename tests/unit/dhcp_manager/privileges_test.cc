// Giving up privileges, each time in a process of its own.

#include "dhcp_manager/privileges.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using dhcp_manager::FindGroup;
using dhcp_manager::FindUser;
using dhcp_manager::GiveUpPrivileges;
using dhcp_manager::User;
using ::testing::ExitedWithCode;

constexpr User kUser{.id = 65534, .group = 65534};

// "CapEff" and its like of this process.
std::map<std::string, std::string> ProcessStatus() {
  std::map<std::string, std::string> status;
  std::ifstream file("/proc/self/status");
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(":\t");
    if (colon != std::string::npos) status[line.substr(0, colon)] = line.substr(colon + 2);
  }
  return status;
}

// Says what differs, for the test's message.
bool Equals(const std::string& what, const std::string& actual, const std::string& expected) {
  if (actual != expected) {
    std::fprintf(stderr, "%s is '%s'\n", what.c_str(), actual.c_str());
  }
  return actual == expected;
}

bool HasGivenUp(const std::string& id = "65534") {
  auto status = ProcessStatus();
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%016llx",
                1ULL << CAP_NET_RAW | 1ULL << CAP_NET_BIND_SERVICE);
  const std::string relaying = text.data();
  const std::string none(16, '0');
  const std::string ids = id + "\t" + id + "\t" + id + "\t" + id;
  std::map<std::string, std::string> expected{
      {"Uid", ids},     {"Gid", ids},     {"CapEff", relaying}, {"CapPrm", relaying},
      {"CapInh", none}, {"CapBnd", none}, {"CapAmb", none},     {"NoNewPrivs", "1"}};
  if (id != "0") expected["Groups"] = "";
  bool equal = true;
  for (const auto& [name, value] : expected) {
    // The line of the groups ends with a blank.
    std::string actual = status[name];
    if (name == "Groups") actual.erase(actual.find_last_not_of(' ') + 1);
    equal = Equals(name, actual, value) && equal;
  }
  return equal;
}

TEST(FindUserTest, KnowsRoot) {
  const User root = FindUser("root");
  EXPECT_EQ(root.id, 0U);
  EXPECT_EQ(root.group, 0U);
}

TEST(FindUserTest, RefusesAUserThatThereIsNot) {
  try {
    FindUser("no-such-user");
    FAIL() << "found";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()).rfind("there is no user no-such-user", 0), 0U)
        << error.what();
  }
}

TEST(FindGroupTest, KnowsRootAndNotWhatThereIsNot) {
  EXPECT_EQ(FindGroup("root"), 0U);
  EXPECT_EQ(FindGroup("no-such-group"), std::nullopt);
}

TEST(GiveUpPrivilegesDeathTest, LeavesTheUserWithTwoCapabilities) {
  ASSERT_EQ(geteuid(), 0U) << "only root has privileges to give up";
  EXPECT_EXIT(
      {
        GiveUpPrivileges(kUser);
        std::exit(HasGivenUp() ? 0 : 1);
      },
      ExitedWithCode(0), "");
}

TEST(GiveUpPrivilegesDeathTest, WithoutAUserLeavesTwoCapabilities) {
  ASSERT_EQ(geteuid(), 0U) << "only root has privileges to give up";
  EXPECT_EXIT(
      {
        GiveUpPrivileges();
        std::exit(HasGivenUp("0") ? 0 : 1);
      },
      ExitedWithCode(0), "");
}

TEST(GiveUpPrivilegesDeathTest, WithoutAUserTakesNoneThatItHasNot) {
  EXPECT_EXIT(
      {
        if (geteuid() == 0 && setuid(kUser.id) != 0) std::exit(2);
        GiveUpPrivileges();
        auto status = ProcessStatus();
        const std::string none(16, '0');
        std::exit(status["CapEff"] == none && status["CapPrm"] == none &&
                          status["NoNewPrivs"] == "1"
                      ? 0
                      : 1);
      },
      ExitedWithCode(0), "");
}

TEST(GiveUpPrivilegesDeathTest, CannotBeUndone) {
  ASSERT_EQ(geteuid(), 0U) << "only root has privileges to give up";
  EXPECT_EXIT(
      {
        GiveUpPrivileges(kUser);
        std::exit(setuid(0) == 0 || setgid(0) == 0 ? 1 : 0);
      },
      ExitedWithCode(0), "");
}

TEST(GiveUpPrivilegesDeathTest, WithoutPrivilegesIsAnError) {
  EXPECT_EXIT(
      {
        if (geteuid() == 0 && setuid(kUser.id) != 0) std::exit(2);
        try {
          GiveUpPrivileges({.id = 1, .group = 1});
        } catch (const std::runtime_error& error) {
          std::fputs(error.what(), stderr);
          std::exit(0);
        }
        std::exit(1);
      },
      ExitedWithCode(0), "cannot give up privileges: start the manager as root");
}

}  // namespace
