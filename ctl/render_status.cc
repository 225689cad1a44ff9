#include "ctl/render_status.h"

#include "ctl/text.h"
#include "protocol/control/address_text.h"

namespace relayctl {
namespace {

namespace control = dhcp_relay::control;
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

std::string VrfText(const std::string& vrf_device) {
  return vrf_device.empty() ? "the default VRF" : "VRF " + vrf_device;
}

// "" for a socket that is bound to no address.
std::string AddressOf(const control::CompetingSocket& socket) {
  return socket.address() == 0 ? "" : control::AddressText(socket.address());
}

// "dnsmasq (process 4711) of user 0", or "a process of user 0".
std::string ProcessText(const control::CompetingSocket& socket, const SocketOwner& owner) {
  const std::string process = owner(socket.inode());
  return (process.empty() ? "a process" : process) + " of user " + std::to_string(socket.user());
}

std::string SocketsText(const Status& status, const SocketOwner& owner) {
  std::string text;
  for (const control::MissingSocket& socket : status.missing_sockets()) {
    text.append("sockets: none in ").append(VrfText(socket.vrf_device())).append(": ");
    text.append(socket.reason()).append("\n");
  }
  for (const control::CompetingSocket& socket : status.competing_sockets()) {
    const std::string address = AddressOf(socket);
    text.append("sockets: replies ").append(address.empty() ? "" : "to " + address + " ");
    text.append("in ").append(VrfText(socket.vrf_device())).append(" are taken by ");
    text.append(ProcessText(socket, owner)).append("\n");
  }
  return text;
}

ordered_json MissingAsJson(const Status& status) {
  ordered_json list = ordered_json::array();
  for (const control::MissingSocket& socket : status.missing_sockets()) {
    list.push_back({{"vrf_device", TextOrNull(socket.vrf_device())}, {"reason", socket.reason()}});
  }
  return list;
}

ordered_json CompetingAsJson(const Status& status, const SocketOwner& owner) {
  ordered_json list = ordered_json::array();
  for (const control::CompetingSocket& socket : status.competing_sockets()) {
    list.push_back({{"vrf_device", TextOrNull(socket.vrf_device())},
                    {"address", TextOrNull(AddressOf(socket))},
                    {"user", socket.user()},
                    {"process", TextOrNull(owner(socket.inode()))}});
  }
  return list;
}

std::string KernelText(const Status& status) {
  const auto& drops = status.kernel_drops();
  std::string text;
  if (status.has_kernel_drops() && !drops.has_replies()) {
    text.append("kernel: refuses the filters that count; interfaces have no share of their own\n");
  }
  if (!HasKernelDrops(drops)) return text;
  return text.append("kernel: dropped ").append(KernelDropsText(drops)).append("\n");
}

}  // namespace

std::string StatusAsJson(const std::optional<Status>& status, const SaveStatus& commits,
                         const SocketOwner& owner) {
  ordered_json object = ordered_json::object();
  if (status) {
    object["connected"] = status->connected();
    object["in_sync"] = status->in_sync();
    object["calls"] = status->calls();
    object["dumps"] = status->dumps();
    object["journal_dropped"] = status->journal_dropped();
    object["journal_fault"] = TextOrNull(status->journal_fault());
    object["missing_sockets"] = MissingAsJson(*status);
    object["competing_sockets"] = CompetingAsJson(*status, owner);
    object["kernel_drops"] = KernelDropsAsJson(status->kernel_drops());
  }
  object["commits"] = {{"state", Name(commits.state)}, {"reason", TextOrNull(commits.reason)}};
  return Dump(object);
}

std::string StatusAsText(const std::optional<Status>& status, const SaveStatus& commits,
                         const SocketOwner& owner) {
  std::string text;
  if (status) {
    text.append(DaemonText(*status)).append(SocketsText(*status, owner));
    text.append(JournalText(*status)).append(KernelText(*status));
  }
  return text.append("commits: ").append(CommitsText(commits)).append("\n");
}

}  // namespace relayctl
