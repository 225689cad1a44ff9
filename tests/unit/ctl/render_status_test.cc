#include "ctl/render_status.h"

#include <gtest/gtest.h>

#include <optional>

#include "protocol/control/control.pb.h"
#include "protocol/saving/save_status.h"

namespace {

namespace control = dhcp_relay::control;
using dhcp_relay::saving::SaveState;
using dhcp_relay::saving::SaveStatus;
using relayctl::StatusAsJson;
using relayctl::StatusAsText;

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
            R"("commits":{"state":"saved","reason":null}})");
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
