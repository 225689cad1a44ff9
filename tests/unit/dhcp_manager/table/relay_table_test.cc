// The relay table, the resync rules and the journal.

#include "dhcp_manager/table/relay_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "tests/support/calls.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::Instance;
using dhcp_manager::Journal;
using dhcp_manager::JournalLine;
using dhcp_manager::RelayTable;
using dhcp_manager::Resync;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::AddressCall;
using tests::Call;
using tests::FlagCall;
using tests::PolicyCall;
using tests::VlanCall;
using tests::VrfCall;

constexpr std::uint32_t kAddress = 0xC0000201;  // 192.0.2.1

class Table : public ::testing::Test {
 protected:
  const Instance& R1() { return table_.instances().at("r1"); }

  RelayTable table_;
};

TEST_F(Table, HoldsEachServerOnceInOrder) {
  table_.Apply(AddressCall(wire::ADD_SERVER, "r1", kAddress + 1));
  table_.Apply(AddressCall(wire::ADD_SERVER, "r1", kAddress));
  table_.Apply(AddressCall(wire::ADD_SERVER, "r1", kAddress));
  EXPECT_THAT(R1().servers, ElementsAre(*nettypes::IPv4Addr::parse("192.0.2.1"),
                                        *nettypes::IPv4Addr::parse("192.0.2.2")));
  table_.Apply(AddressCall(wire::DELETE_SERVER, "r1", kAddress));
  EXPECT_THAT(R1().servers, ElementsAre(*nettypes::IPv4Addr::parse("192.0.2.2")));
}

TEST_F(Table, HoldsTheSettingsOfAnInstance) {
  table_.Apply(FlagCall(wire::SET_CHECK, "r1", true));
  EXPECT_EQ(R1().settings.trusted, std::nullopt);
  table_.Apply(FlagCall(wire::SET_TRUSTED, "r1", false));
  table_.Apply(FlagCall(wire::SET_OPTION, "r1", true));
  table_.Apply(PolicyCall(wire::SET_POLICY, "r1", 2));
  EXPECT_EQ(R1().settings,
            (dhcp_manager::Settings{true, false, true, dhcp_relay::wire::Policy::kReplace}));
}

TEST_F(Table, HoldsAVrfUntilItIsCleared) {
  table_.Apply(VrfCall("r1", 0x01000007));
  EXPECT_EQ(R1().vrf, 0x01000007U);
  table_.Apply(VrfCall("r1", 0));
  EXPECT_EQ(R1().vrf, std::nullopt);
}

TEST_F(Table, HoldsInterfacesWithTheirVlanAndAddress) {
  table_.Apply(Call(wire::ADD_L3_INTERFACE, "r1", "l3-5"));
  EXPECT_EQ(R1().interfaces.at("l3-5"), dhcp_manager::L3Interface{});
  table_.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  table_.Apply(AddressCall(wire::SET_L3_INTERFACE_ADDRESS, "r1", kAddress, "l3-5"));
  EXPECT_EQ(R1().interfaces.at("l3-5").vlan, 5);
  EXPECT_EQ(R1().interfaces.at("l3-5").address, nettypes::IPv4Addr::parse("192.0.2.1"));
  table_.Apply(Call(wire::ADD_L3_INTERFACE, "r1", "l3-5"));
  EXPECT_EQ(R1().interfaces.at("l3-5").vlan, 5);
  table_.Apply(Call(wire::DELETE_L3_INTERFACE, "r1", "l3-5"));
  EXPECT_THAT(R1().interfaces, IsEmpty());
}

TEST_F(Table, DeletesAVlanOnlyWhileItIsTheOneInPlace) {
  table_.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 20));
  table_.Apply(VlanCall(wire::DELETE_L3_INTERFACE_VLAN, "r1", "l3-5", 10));
  EXPECT_EQ(R1().interfaces.at("l3-5").vlan, 20);
  table_.Apply(VlanCall(wire::DELETE_L3_INTERFACE_VLAN, "r1", "l3-5", 20));
  EXPECT_EQ(R1().interfaces.at("l3-5").vlan, std::nullopt);
}

TEST_F(Table, HoldsOverrides) {
  table_.Apply(Call(wire::ADD_IF_OPTION, "r1", "a"));
  table_.Apply(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", true, "b"));
  table_.Apply(FlagCall(wire::SET_IF_OPTION_TRUSTED, "r1", true, "b"));
  table_.Apply(FlagCall(wire::SET_IF_OPTION_OPTION, "r1", false, "b"));
  table_.Apply(PolicyCall(wire::SET_IF_OPTION_POLICY, "r1", 0, "b"));
  EXPECT_EQ(R1().overrides.at("a"), dhcp_manager::Settings{});
  EXPECT_EQ(R1().overrides.at("b"),
            (dhcp_manager::Settings{true, true, false, dhcp_relay::wire::Policy::kDrop}));
  EXPECT_EQ(R1().settings, dhcp_manager::Settings{});
  table_.Apply(Call(wire::DELETE_IF_OPTION, "r1", "b"));
  EXPECT_EQ(R1().overrides.size(), 1U);
}

TEST_F(Table, DeletesAWholeInstance) {
  table_.Apply(FlagCall(wire::SET_CHECK, "r1", true));
  table_.Apply(FlagCall(wire::SET_CHECK, "r2", true));
  table_.Apply(Call(wire::DELETE_INSTANCE, "r1"));
  EXPECT_EQ(table_.instances().size(), 1U);
  EXPECT_EQ(table_.instances().count("r2"), 1U);
}

TEST_F(Table, DeletingWhatIsNotThereMakesNothing) {
  for (const auto& call :
       {AddressCall(wire::DELETE_SERVER, "r1", kAddress), Call(wire::DELETE_INSTANCE, "r1"),
        VlanCall(wire::DELETE_L3_INTERFACE_VLAN, "r1", "l3-5", 5),
        Call(wire::DELETE_L3_INTERFACE, "r1", "l3-5"), Call(wire::DELETE_IF_OPTION, "r1", "l3-5"),
        VrfCall("r1", 0)}) {
    table_.Apply(call);
    EXPECT_THAT(table_.instances(), IsEmpty()) << JournalLine(call);
  }
  table_.Apply(FlagCall(wire::SET_CHECK, "r1", true));
  table_.Apply(VlanCall(wire::DELETE_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  table_.Apply(Call(wire::DELETE_IF_OPTION, "r1", "l3-5"));
  EXPECT_THAT(R1().interfaces, IsEmpty());
  EXPECT_THAT(R1().overrides, IsEmpty());
}

TEST_F(Table, PrintsWhatItHolds) {
  table_.Apply(VrfCall("r1", 7));
  table_.Apply(VlanCall(wire::SET_L3_INTERFACE_VLAN, "r1", "l3-5", 5));
  table_.Apply(PolicyCall(wire::SET_IF_OPTION_POLICY, "r1", 1, "l3-5"));
  std::ostringstream out;
  out << table_;
  EXPECT_EQ(out.str(), "\ninstance r1 vrf=7\n  interface l3-5 vlan=5\n  override l3-5 policy=keep");
}

class ResyncTest : public ::testing::Test {
 protected:
  void Set(const std::string& instance) {
    resync_.Apply(FlagCall(wire::SET_CHECK, instance, true));
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& [name, instance] : resync_.table().instances()) names.push_back(name);
    return names;
  }
  // A connection whose dump holds this one instance.
  void Sync(const std::string& instance) {
    const auto id = resync_.Connected();
    ASSERT_TRUE(resync_.BeginDump(id));
    Set(instance);
    ASSERT_TRUE(resync_.CompleteDump(id));
  }

  Resync resync_;
};

TEST_F(ResyncTest, ANewTableTakesTheOldOnesPlaceWhenTheDumpIsComplete) {
  Sync("old");
  const auto id = resync_.Connected();
  EXPECT_EQ(resync_.state(), Resync::State::kWaiting);
  ASSERT_TRUE(resync_.BeginDump(id));
  EXPECT_EQ(resync_.state(), Resync::State::kReceiving);
  Set("new");
  EXPECT_THAT(Names(), ElementsAre("old"));
  ASSERT_TRUE(resync_.CompleteDump(id));
  EXPECT_EQ(resync_.state(), Resync::State::kInSync);
  EXPECT_THAT(Names(), ElementsAre("new"));
  EXPECT_EQ(resync_.dumps(), 2U);
  EXPECT_EQ(resync_.calls(), 2U);
}

TEST_F(ResyncTest, CallsAfterTheDumpGoToTheTableInUse) {
  Sync("r1");
  Set("r2");
  EXPECT_THAT(Names(), ElementsAre("r1", "r2"));
}

TEST_F(ResyncTest, CallsBeforeTheDumpBeginsGoToTheTableInUse) {
  Sync("r1");
  resync_.Disconnected();
  const auto id = resync_.Connected();
  Set("r2");
  EXPECT_THAT(Names(), ElementsAre("r1", "r2"));
  ASSERT_TRUE(resync_.BeginDump(id));
  ASSERT_TRUE(resync_.CompleteDump(id));
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(ResyncTest, ALossInTheMiddleOfADumpChangesNothing) {
  Sync("r1");
  const auto id = resync_.Connected();
  ASSERT_TRUE(resync_.BeginDump(id));
  Set("half");
  resync_.Disconnected();
  EXPECT_EQ(resync_.state(), Resync::State::kDisconnected);
  EXPECT_THAT(Names(), ElementsAre("r1"));
  Sync("r2");
  EXPECT_THAT(Names(), ElementsAre("r2"));
}

TEST_F(ResyncTest, ACommitTakesEffectAtItsEnd) {
  Sync("r1");
  resync_.BeginCommit();
  Set("r2");
  resync_.BeginCommit();  // as every packet that continues says
  Set("r3");
  EXPECT_TRUE(resync_.commit_open());
  EXPECT_FALSE(resync_.in_sync());
  EXPECT_THAT(Names(), ElementsAre("r1"));
  resync_.EndCommit();
  EXPECT_THAT(Names(), ElementsAre("r1", "r2", "r3"));
  EXPECT_TRUE(resync_.in_sync());
  EXPECT_EQ(resync_.calls(), 3U);
}

TEST_F(ResyncTest, TellsOfACommitOnce) {
  Sync("r1");
  std::vector<Resync::Change> changes;
  resync_.OnChange([&](Resync::Change change) { changes.push_back(change); });
  resync_.BeginCommit();
  Set("r2");
  Set("r3");
  EXPECT_THAT(changes, IsEmpty());
  resync_.EndCommit();
  resync_.EndCommit();
  EXPECT_THAT(changes, ElementsAre(Resync::Change::kTable));
}

TEST_F(ResyncTest, ALossInTheMiddleOfACommitChangesNothing) {
  Sync("r1");
  resync_.BeginCommit();
  Set("half");
  resync_.Disconnected();
  resync_.EndCommit();
  EXPECT_THAT(Names(), ElementsAre("r1"));
  Sync("r2");
  Set("r3");
  EXPECT_THAT(Names(), ElementsAre("r2", "r3"));
}

TEST_F(ResyncTest, ADumpDropsACommitThatIsNotComplete) {
  Sync("r1");
  const auto id = resync_.Connected();
  resync_.BeginCommit();
  Set("half");
  ASSERT_TRUE(resync_.BeginDump(id));
  Set("new");
  resync_.BeginCommit();
  resync_.EndCommit();
  EXPECT_THAT(Names(), ElementsAre("r1"));
  ASSERT_TRUE(resync_.CompleteDump(id));
  EXPECT_THAT(Names(), ElementsAre("new"));
}

TEST_F(ResyncTest, IsBehindWhileCommitsArePendingAndTakesTheirCalls) {
  Sync("r1");
  EXPECT_TRUE(resync_.SetCommitsPending(true));
  EXPECT_EQ(resync_.state(), Resync::State::kBehind);
  Set("r2");
  EXPECT_THAT(Names(), ElementsAre("r1", "r2"));
  EXPECT_TRUE(resync_.SetCommitsPending(false));
  EXPECT_EQ(resync_.state(), Resync::State::kInSync);
}

TEST_F(ResyncTest, PendingCommitsAreRefusedBeforeACompleteDump) {
  EXPECT_FALSE(resync_.SetCommitsPending(true));
  const auto id = resync_.Connected();
  EXPECT_FALSE(resync_.SetCommitsPending(false));
  ASSERT_TRUE(resync_.BeginDump(id));
  EXPECT_FALSE(resync_.SetCommitsPending(true));
  EXPECT_EQ(resync_.state(), Resync::State::kReceiving);
}

TEST_F(ResyncTest, PendingCommitsEndWithTheirConnection) {
  Sync("r1");
  EXPECT_TRUE(resync_.SetCommitsPending(true));
  resync_.Disconnected();
  Sync("r1");
  EXPECT_EQ(resync_.state(), Resync::State::kInSync);
}

TEST_F(ResyncTest, ADumpThatWasNotAskedForIsRefused) {
  EXPECT_FALSE(resync_.BeginDump(0));
  const auto id = resync_.Connected();
  EXPECT_FALSE(resync_.BeginDump(id + 1));
  EXPECT_FALSE(resync_.CompleteDump(id));
  ASSERT_TRUE(resync_.BeginDump(id));
  EXPECT_FALSE(resync_.BeginDump(id));
  EXPECT_FALSE(resync_.CompleteDump(id + 1));
  EXPECT_TRUE(resync_.CompleteDump(id));
  EXPECT_FALSE(resync_.CompleteDump(id));
}

TEST_F(ResyncTest, KnowsTheDumpThatIsOutstanding) {
  EXPECT_EQ(resync_.outstanding(), std::nullopt);
  const auto id = resync_.Connected();
  EXPECT_EQ(resync_.outstanding(), id);
  ASSERT_TRUE(resync_.BeginDump(id));
  EXPECT_EQ(resync_.outstanding(), id);
  ASSERT_TRUE(resync_.CompleteDump(id));
  EXPECT_EQ(resync_.outstanding(), std::nullopt);
}

TEST(JournalLine, SaysOperationInstanceAndArguments) {
  EXPECT_EQ(JournalLine(AddressCall(wire::ADD_SERVER, "r1", kAddress)), "AddServer r1 192.0.2.1");
  EXPECT_EQ(JournalLine(VrfCall("r1", 0x01000007)), "SetVrf r1 0x01000007");
  EXPECT_EQ(JournalLine(VrfCall("r1", 0)), "SetVrf r1 0x00000000");
  EXPECT_EQ(JournalLine(PolicyCall(wire::SET_POLICY, "r1", 0)), "SetPolicy r1 drop");
  EXPECT_EQ(JournalLine(PolicyCall(wire::SET_IF_OPTION_POLICY, "r1", 2, "l3-5")),
            "SetIfOptionPolicy r1 l3-5 replace");
  EXPECT_EQ(JournalLine(FlagCall(wire::SET_IF_OPTION_CHECK, "r1", false, "l3-5")),
            "SetIfOptionCheck r1 l3-5 false");
  EXPECT_EQ(JournalLine(VlanCall(wire::DELETE_L3_INTERFACE_VLAN, "r1", "l3-5", 5)),
            "DeleteL3InterfaceVlan r1 l3-5 5");
  EXPECT_EQ(JournalLine(Call(wire::DELETE_INSTANCE, "r1")), "DeleteInstance r1");
}

class JournalTest : public ::testing::Test {
 protected:
  JournalTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
  }
  ~JournalTest() override { std::filesystem::remove_all(directory_); }

  std::string Content() const {
    std::ostringstream content;
    content << std::ifstream(directory_ / "journal").rdbuf();
    return content.str();
  }

  std::filesystem::path directory_;
};

TEST_F(JournalTest, AppendsToWhatIsThere) {
  std::ofstream(directory_ / "journal") << "earlier\n";
  Journal journal(directory_ / "journal");
  journal.Add(Call(wire::DELETE_INSTANCE, "r1"));
  journal.Add(Call(wire::DELETE_INSTANCE, "r2"));
  journal.Flush();
  EXPECT_EQ(Content(), "earlier\nDeleteInstance r1\nDeleteInstance r2\n");
  journal.Flush();
  EXPECT_EQ(Content(), "earlier\nDeleteInstance r1\nDeleteInstance r2\n");
}

TEST_F(JournalTest, ThatCannotBeOpenedIsAnError) {
  EXPECT_THROW(Journal journal(directory_), std::system_error);
}

TEST_F(JournalTest, FollowsNoSymbolicLink) {
  std::ofstream(directory_ / "precious") << "precious\n";
  std::filesystem::create_symlink(directory_ / "precious", directory_ / "journal");
  EXPECT_THROW(Journal journal(directory_ / "journal"), std::system_error);
  std::filesystem::remove(directory_ / "journal");
  Journal journal(directory_ / "journal");
  std::filesystem::remove(directory_ / "journal");
  std::filesystem::create_symlink(directory_ / "precious", directory_ / "journal");
  EXPECT_TRUE(journal.Reopen());
  journal.Add(Call(wire::DELETE_INSTANCE, "r1"));
  EXPECT_FALSE(journal.Flush());
  EXPECT_EQ(Content(), "precious\n");
}

TEST_F(JournalTest, GivesAwayWhatItMakesAndNothingElse) {
  const Journal made(directory_ / "journal", 4711);
  std::ofstream(directory_ / "other") << "earlier\n";
  const Journal found(directory_ / "other", 4711);
  struct stat status{};
  ASSERT_EQ(stat((directory_ / "journal").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 4711U);
  ASSERT_EQ(stat((directory_ / "other").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, geteuid());
}

TEST_F(JournalTest, GoesOnInANewFileOfItsName) {
  Journal journal(directory_ / "journal");
  std::filesystem::rename(directory_ / "journal", directory_ / "journal.1");
  EXPECT_FALSE(journal.Reopen());
  journal.Add(Call(wire::DELETE_INSTANCE, "r1"));
  EXPECT_FALSE(journal.Flush());
  EXPECT_EQ(Content(), "DeleteInstance r1\n");
}

TEST_F(JournalTest, DropsAndCountsWhatCannotBeWrittenAndTellsItOnce) {
  Journal journal("/dev/full");
  journal.Add(Call(wire::DELETE_INSTANCE, "r1"));
  journal.Add(Call(wire::DELETE_INSTANCE, "r2"));
  EXPECT_EQ(journal.Flush(), "cannot write the journal /dev/full: No space left on device");
  journal.Add(Call(wire::DELETE_INSTANCE, "r3"));
  EXPECT_FALSE(journal.Flush());
  EXPECT_EQ(journal.dropped(), 3U);
  EXPECT_EQ(journal.fault(), "No space left on device");
}

// Lets files grow to `size` bytes while it lives; a write beyond that fails as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now{.rlim_cur = size, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &now);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, SIG_DFL);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
};

TEST_F(JournalTest, HoldsWholeLinesAndTellsTheGap) {
  Journal journal(directory_ / "journal");
  journal.Add(Call(wire::DELETE_INSTANCE, "r1"));
  EXPECT_FALSE(journal.Flush());
  {
    const FileSizeLimit limit(25);  // in the midst of the second line
    journal.Add(Call(wire::DELETE_INSTANCE, "r2"));
    EXPECT_TRUE(journal.Flush());
    EXPECT_EQ(Content(), "DeleteInstance r1\n");
  }
  journal.Add(Call(wire::DELETE_INSTANCE, "r3"));
  EXPECT_FALSE(journal.Flush());
  EXPECT_EQ(Content(),
            "DeleteInstance r1\n# 1 calls are missing: File too large\nDeleteInstance r3\n");
  EXPECT_EQ(journal.dropped(), 1U);
  EXPECT_EQ(journal.fault(), "");
}

TEST(Journal, WithoutAFileKeepsNothing) {
  Journal journal;
  journal.Add(Call(wire::DELETE_INSTANCE, "r1"));
  journal.Flush();
}

}  // namespace
