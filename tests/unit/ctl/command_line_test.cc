// What the command line of dhcp-relayctl may be.

#include "ctl/command_line.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using ::testing::ExitedWithCode;

relayctl::CommandLine Parse(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "dhcp-relayctl");
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  optind = 0;
  return relayctl::ParseCommandLine(static_cast<int>(arguments.size()), pointers.data());
}

TEST(CommandLine, IsACommandWithItsTopicAndOptions) {
  const auto line = Parse({"show", "counters", "--json", "--runtime-dir", "/somewhere"});
  EXPECT_EQ(line.command, "show");
  EXPECT_EQ(line.topic, "counters");
  EXPECT_TRUE(line.json);
  EXPECT_EQ(line.directory, "/somewhere");
}

TEST(CommandLine, HasTheDirectoryOfTheEnvironmentUnlessItNamesOne) {
  setenv("DHCP_MANAGER_DIR", "/elsewhere", 1);
  const auto line = Parse({"status", "--wait", "30"});
  EXPECT_EQ(line.directory, "/elsewhere");
  EXPECT_EQ(line.wait, 30);
  EXPECT_EQ(line.topic, "");
  EXPECT_FALSE(line.json);
}

TEST(CommandLine, IsRefusedWithItsReason) {
  EXPECT_EXIT(Parse({}), ExitedWithCode(2), "dhcp-relayctl: missing command\nTry");
  EXPECT_EXIT(Parse({"show", "counters", "now"}), ExitedWithCode(2), "unexpected argument 'now'");
  EXPECT_EXIT(Parse({"status", "--wait", "soon"}), ExitedWithCode(2),
              "'soon' is not a number of seconds");
  EXPECT_EXIT(Parse({"status", "--wait", "-1"}), ExitedWithCode(2),
              "'-1' is not a number of seconds");
  EXPECT_EXIT(Parse({"--fast", "show"}), ExitedWithCode(2), "--fast");
}

}  // namespace
