#include "ctl/render_status.h"

#include "ctl/text.h"

namespace relayctl {
namespace {

using dhcp_relay::control::Status;
using dhcp_relay::saving::SaveState;
using dhcp_relay::saving::SaveStatus;
using nlohmann::ordered_json;

std::string CommitsText(const SaveStatus& commits) {
  switch (commits.state) {
    case SaveState::kSaved:
      return "saved";
    case SaveState::kSaving:
      return "being saved";
    case SaveState::kFailed:
      return "not saved: " + commits.reason;
    case SaveState::kUnknown:
      return "unknown: " + commits.reason;
    case SaveState::kNotRunning:
      break;
  }
  return "not saved: dhcp-relay-saved does not run";
}

// A text, or null where there is none.
ordered_json TextOrNull(const std::string& text) {
  return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

std::string DaemonText(const Status& status) {
  std::string text = "daemon: ";
  text.append(status.connected() ? "connected" : "not connected");
  text.append(status.in_sync() ? ", in sync" : ", not in sync");
  text.append("; ").append(std::to_string(status.calls())).append(" calls and ");
  return text.append(std::to_string(status.dumps())).append(" dumps so far\n");
}

std::string JournalText(const Status& status) {
  if (status.journal_dropped() == 0) return {};
  std::string text = "journal: " + std::to_string(status.journal_dropped()) + " calls are missing";
  if (!status.journal_fault().empty()) text.append("; ").append(status.journal_fault());
  return text.append("\n");
}

}  // namespace

std::string StatusAsJson(const std::optional<Status>& status, const SaveStatus& commits) {
  ordered_json object = ordered_json::object();
  if (status) {
    object["connected"] = status->connected();
    object["in_sync"] = status->in_sync();
    object["calls"] = status->calls();
    object["dumps"] = status->dumps();
    object["journal_dropped"] = status->journal_dropped();
    object["journal_fault"] = TextOrNull(status->journal_fault());
  }
  object["commits"] = {{"state", Name(commits.state)}, {"reason", TextOrNull(commits.reason)}};
  return Dump(object);
}

std::string StatusAsText(const std::optional<Status>& status, const SaveStatus& commits) {
  std::string text;
  if (status) text.append(DaemonText(*status)).append(JournalText(*status));
  return text.append("commits: ").append(CommitsText(commits)).append("\n");
}

}  // namespace relayctl
