#include "ctl/render_status.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "protocol/control/control.pb.h"
#include "protocol/saving/save_status.h"

namespace {

namespace control = dhcp_relay::control;
using dhcp_relay::saving::SaveState;
using dhcp_relay::saving::SaveStatus;

constexpr std::uint32_t kKnownInode = 7;

std::string OwnerOf(std::uint32_t inode) {
  return inode == kKnownInode ? "dnsmasq (process 4711)" : "";
}

std::string StatusAsJson(const std::optional<control::Status>& status, const SaveStatus& commits) {
  return relayctl::StatusAsJson(status, commits, OwnerOf);
}

std::string StatusAsText(const std::optional<control::Status>& status, const SaveStatus& commits) {
  return relayctl::StatusAsText(status, commits, OwnerOf);
}

TEST(Status, TellsConnectionSyncAndCommits) {
  control::Status status;
  EXPECT_EQ(StatusAsText(status, {}),
            "daemon: not connected, not in sync; 0 calls and 0 dumps so far\n"
            "commits: not saved: dhcp-relay-saved does not run\n");
  status.set_connected(true);
  status.set_in_sync(true);
  status.set_calls(26);
  status.set_dumps(1);
  const SaveStatus saved{SaveState::kSaved, {}};
  EXPECT_EQ(StatusAsText(status, saved),
            "daemon: connected, in sync; 26 calls and 1 dumps so far\n"
            "commits: saved\n");
  EXPECT_EQ(StatusAsJson(status, saved), R"({"connected":true,"in_sync":true,"calls":26,"dumps":1,)"
                                         R"("journal_dropped":0,"journal_fault":null,)"
                                         R"("missing_sockets":[],"competing_sockets":[],)"
                                         R"("kernel_drops":{"requests":0,"replies":null,)"
                                         R"("link_events":0},)"
                                         R"("commits":{"state":"saved","reason":null}})");
}

TEST(Status, TellsWhatIsMissingInTheJournal) {
  control::Status status;
  status.set_journal_dropped(42);
  const SaveStatus saved{SaveState::kSaved, {}};
  EXPECT_EQ(StatusAsText(status, saved),
            "daemon: not connected, not in sync; 0 calls and 0 dumps so far\n"
            "journal: 42 calls are missing\n"
            "commits: saved\n");
  status.set_journal_fault("No space left on device");
  EXPECT_EQ(StatusAsText(status, saved),
            "daemon: not connected, not in sync; 0 calls and 0 dumps so far\n"
            "journal: 42 calls are missing; No space left on device\n"
            "commits: saved\n");
  EXPECT_EQ(StatusAsJson(status, saved),
            R"({"connected":false,"in_sync":false,"calls":0,"dumps":0,)"
            R"("journal_dropped":42,"journal_fault":"No space left on device",)"
            R"("missing_sockets":[],"competing_sockets":[],)"
            R"("kernel_drops":{"requests":0,"replies":null,"link_events":0},)"
            R"("commits":{"state":"saved","reason":null}})");
}

TEST(Status, TellsWhatIsWrongWithSockets) {
  control::Status status;
  for (const char* device : {"", "red"}) {
    auto& missing = *status.add_missing_sockets();
    missing.set_vrf_device(device);
    missing.set_reason("Address already in use");
  }
  auto& known = *status.add_competing_sockets();
  known.set_inode(kKnownInode);
  known.set_address(0xC0A80501);
  auto& unknown = *status.add_competing_sockets();
  unknown.set_vrf_device("red");
  unknown.set_user(5);
  const SaveStatus saved{SaveState::kSaved, {}};
  EXPECT_EQ(StatusAsText(status, saved),
            "daemon: not connected, not in sync; 0 calls and 0 dumps so far\n"
            "sockets: none in the default VRF: Address already in use\n"
            "sockets: none in VRF red: Address already in use\n"
            "sockets: replies to 192.168.5.1 in the default VRF are taken by "
            "dnsmasq (process 4711) of user 0\n"
            "sockets: replies in VRF red are taken by a process of user 5\n"
            "commits: saved\n");
  EXPECT_EQ(StatusAsJson(status, saved),
            R"({"connected":false,"in_sync":false,"calls":0,"dumps":0,)"
            R"("journal_dropped":0,"journal_fault":null,)"
            R"("missing_sockets":[{"vrf_device":null,"reason":"Address already in use"},)"
            R"({"vrf_device":"red","reason":"Address already in use"}],)"
            R"("competing_sockets":[{"vrf_device":null,"address":"192.168.5.1","user":0,)"
            R"-("process":"dnsmasq (process 4711)"},)-"
            R"({"vrf_device":"red","address":null,"user":5,"process":null}],)"
            R"("kernel_drops":{"requests":0,"replies":null,"link_events":0},)"
            R"("commits":{"state":"saved","reason":null}})");
}

TEST(Status, TellsWhatTheKernelDropped) {
  constexpr char kDaemon[] = "daemon: not connected, not in sync; 0 calls and 0 dumps so far\n";
  control::Status status;
  const SaveStatus saved{SaveState::kSaved, {}};
  auto& drops = *status.mutable_kernel_drops();
  drops.set_replies(0);
  EXPECT_EQ(StatusAsText(status, saved), std::string(kDaemon) + "commits: saved\n");
  drops.set_replies(3);
  EXPECT_EQ(StatusAsText(status, saved),
            std::string(kDaemon) +
                "kernel: dropped requests 0, replies 3, link events 0\ncommits: saved\n");
  drops.clear_replies();
  EXPECT_EQ(StatusAsText(status, saved),
            std::string(kDaemon) +
                "kernel: refuses the filters that count; interfaces have no share of their own\n"
                "commits: saved\n");
  drops.set_requests(4);
  EXPECT_EQ(StatusAsText(status, saved),
            std::string(kDaemon) +
                "kernel: refuses the filters that count; interfaces have no share of their own\n"
                "kernel: dropped requests 4, replies -, link events 0\ncommits: saved\n");
}

TEST(Status, TellsOfCommitsAlsoWithoutAManager) {
  EXPECT_EQ(StatusAsText(std::nullopt, {SaveState::kSaving, {}}), "commits: being saved\n");
  EXPECT_EQ(StatusAsJson(std::nullopt, {}), R"({"commits":{"state":"not-running","reason":null}})");
}

TEST(Status, TellsWhyCommitsAreNotSaved) {
  const SaveStatus failed{SaveState::kFailed, "No space left on device"};
  EXPECT_EQ(StatusAsText(std::nullopt, failed), "commits: not saved: No space left on device\n");
  EXPECT_EQ(StatusAsJson(std::nullopt, failed),
            R"({"commits":{"state":"failed","reason":"No space left on device"}})");
  EXPECT_EQ(StatusAsText(std::nullopt, {SaveState::kUnknown, "Permission denied"}),
            "commits: unknown: Permission denied\n");
}

}  // namespace
