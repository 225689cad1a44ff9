// The manager's command line.

#include "dhcp_manager/command_line.h"

#include <getopt.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using dhcp_manager::CommandLine;
using dhcp_manager::VrfDevices;
using ::testing::ExitedWithCode;

constexpr int kUsageError = 2;

CommandLine Parse(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "dhcp-manager");
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  // getopt remembers the previous command line otherwise.
  optind = 0;
  return dhcp_manager::ParseCommandLine(static_cast<int>(arguments.size()), argv.data());
}

// Standard output as standard error, where a death test looks.
void ParseLoudly(const std::vector<std::string>& arguments) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  Parse(arguments);
}

TEST(CommandLineTest, HasDefaults) {
  unsetenv("DHCP_MANAGER_DIR");
  const CommandLine line = Parse({});
  EXPECT_EQ(line.runtime_directory, "/run/dhcp-manager");
  EXPECT_EQ(line.journal, "");
  EXPECT_EQ(line.user, "");
  EXPECT_FALSE(line.keep_rights);
  EXPECT_EQ(line.operators, "");
  EXPECT_EQ(line.daemon_user, "");
  EXPECT_FALSE(line.flood_limits.any());
  EXPECT_FALSE(line.trust.servers_only);
  EXPECT_FALSE(line.trust.drop_foreign_giaddr);
  EXPECT_EQ(line.vrf_devices, VrfDevices());
}

TEST(CommandLineTest, TheDirectoryIsTheOneGivenElseThatOfTheEnvironment) {
  setenv("DHCP_MANAGER_DIR", "/tmp/other", 1);
  EXPECT_EQ(Parse({}).runtime_directory, "/tmp/other");
  EXPECT_EQ(Parse({"--runtime-dir", "/tmp/given"}).runtime_directory, "/tmp/given");
  unsetenv("DHCP_MANAGER_DIR");
}

TEST(CommandLineTest, TakesJournalUsersAndOperators) {
  const CommandLine line = Parse({"--journal", "/tmp/journal", "--user=relay", "--operators",
                                  "netops", "--daemon-user=daemon"});
  EXPECT_EQ(line.daemon_user, "daemon");
  EXPECT_EQ(line.operators, "netops");
  EXPECT_EQ(line.journal, "/tmp/journal");
  EXPECT_EQ(line.user, "relay");
}

TEST(CommandLineTest, TheBurstOfTheFloodGuardIsItsRateUnlessGiven) {
  const auto rate_alone = Parse({"--flood-guard", "100"}).flood_limits.interface;
  ASSERT_TRUE(rate_alone);
  EXPECT_EQ(rate_alone->rate, 100);
  EXPECT_EQ(rate_alone->burst, 100);
  const auto both = Parse({"--flood-guard", "100:7"}).flood_limits.interface;
  ASSERT_TRUE(both);
  EXPECT_EQ(both->rate, 100);
  EXPECT_EQ(both->burst, 7);
}

TEST(CommandLineTest, TakesAGuardOfDiscoversAndOneOfClients) {
  const auto discover = Parse({"--discover-guard", "50:5"}).flood_limits;
  ASSERT_TRUE(discover.discover);
  EXPECT_EQ(discover.discover->rate, 50);
  EXPECT_EQ(discover.discover->burst, 5);
  EXPECT_FALSE(discover.interface || discover.client);
  const auto client = Parse({"--client-guard", "3"}).flood_limits;
  ASSERT_TRUE(client.client);
  EXPECT_EQ(client.client->rate, 3);
  EXPECT_EQ(client.client->burst, 3);
  EXPECT_FALSE(client.interface || client.discover);
}

TEST(CommandLineTest, TakesSeveralVrfDevices) {
  EXPECT_EQ(Parse({"--vrf-device", "7=red", "--vrf-device", "8=blue=x"}).vrf_devices,
            (VrfDevices{{7, "red"}, {8, "blue=x"}}));
}

TEST(CommandLineTest, TakesWhoIsTrusted) {
  EXPECT_TRUE(Parse({"--servers-only"}).trust.servers_only);
  EXPECT_FALSE(Parse({"--servers-only"}).trust.drop_foreign_giaddr);
  EXPECT_TRUE(Parse({"--drop-foreign-giaddr"}).trust.drop_foreign_giaddr);
  EXPECT_FALSE(Parse({"--drop-foreign-giaddr"}).trust.servers_only);
}

TEST(CommandLineTest, KeepsRightsWhereAskedTo) {
  EXPECT_TRUE(Parse({"--keep-rights"}).keep_rights);
}

TEST(CommandLineDeathTest, RefusesToKeepRightsAsAnotherUser) {
  EXPECT_EXIT(Parse({"--keep-rights", "--user", "relay"}), ExitedWithCode(kUsageError),
              "dhcp-manager: --user gives up the rights that --keep-rights keeps");
}

TEST(CommandLineDeathTest, RefusesAFloodGuardThatIsNoRate) {
  for (const char* text : {"", "0", "-1", "x", "1x", "5:", "5:0", ":5", "5:1:2", "4294967296"}) {
    EXPECT_EXIT(Parse({"--flood-guard", text}), ExitedWithCode(kUsageError),
                "dhcp-manager: invalid (rate|burst) of requests '.*'\nTry 'dhcp-manager --help'")
        << text;
  }
}

TEST(CommandLineDeathTest, RefusesAVrfDeviceThatIsNone) {
  for (const char* text : {"", "7", "7=", "red"}) {
    EXPECT_EXIT(Parse({"--vrf-device", text}), ExitedWithCode(kUsageError),
                "dhcp-manager: invalid VRF device \\(TABLE=DEVICE\\) '")
        << text;
  }
  for (const char* text : {"0=red", "x=red", "=red", "7 =red"}) {
    EXPECT_EXIT(Parse({"--vrf-device", text}), ExitedWithCode(kUsageError),
                "dhcp-manager: invalid routing table '")
        << text;
  }
}

TEST(CommandLineDeathTest, RefusesWhatItDoesNotKnow) {
  EXPECT_EXIT(Parse({"--nonsense"}), ExitedWithCode(kUsageError), "Try 'dhcp-manager --help'");
  EXPECT_EXIT(Parse({"extra"}), ExitedWithCode(kUsageError),
              "dhcp-manager: unexpected argument 'extra'\nTry 'dhcp-manager --help'");
  EXPECT_EXIT(Parse({"--journal"}), ExitedWithCode(kUsageError), "Try 'dhcp-manager --help'");
}

TEST(CommandLineDeathTest, HelpNamesEveryOptionAndEndsWithStatus0) {
  for (const char* option :
       {"--runtime-dir", "--journal", "--user", "--keep-rights", "--flood-guard",
        "--discover-guard", "--client-guard", "--servers-only", "--drop-foreign-giaddr",
        "--vrf-device", "--version"}) {
    EXPECT_EXIT(ParseLoudly({"--help"}), ExitedWithCode(EXIT_SUCCESS), option);
  }
}

TEST(CommandLineDeathTest, VersionEndsWithStatus0) {
  EXPECT_EXIT(ParseLoudly({"--version"}), ExitedWithCode(EXIT_SUCCESS),
              "dhcp-manager [0-9]+\\.[0-9]+");
}

}  // namespace
