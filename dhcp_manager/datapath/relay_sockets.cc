#include "dhcp_manager/datapath/relay_sockets.h"

#include <sys/epoll.h>
#include <sys/stat.h>

#include <set>
#include <system_error>
#include <utility>

namespace dhcp_manager {
namespace {

constexpr char kClientSide[] = "the socket towards the clients";

// Lines at once for sockets that are there again, and the time between two lines after that.
constexpr double kLoggedRecoveries = 10;
constexpr std::chrono::seconds kRecoveryInterval{10};

std::uint32_t InodeOf(int fd) {
  struct stat status{};
  return fstat(fd, &status) == 0 ? static_cast<std::uint32_t>(status.st_ino) : 0;
}

std::string SocketText(const std::string& vrf_device) {
  return "the socket of " + VrfText(vrf_device);
}

}  // namespace

RelaySockets::RelaySockets(vxmw_t* mw, SocketOpener& opener, Handlers handlers, SocketDelays delays)
    : mw_(mw),
      opener_(opener),
      handlers_(std::move(handlers)),
      delays_(delays),
      client_retry_(MakeRetry([this] { return OpenAll(); })),
      recoveries_(kLoggedRecoveries, kRecoveryInterval),
      release_(mw, [this] { opener_.ReleasePort(); }) {}

std::unique_ptr<base::Retry> RelaySockets::MakeRetry(std::function<bool()> attempt) {
  const base::RetryDelays delays{.first = delays_.retry, .longest = delays_.retry};
  return std::make_unique<base::Retry>(mw_, delays, handlers_.on_failure,
                                       [this, attempt = std::move(attempt)] {
                                         if (attempt()) handlers_.on_opened();
                                       });
}

void RelaySockets::Apply(const Forwarding& forwarding) {
  const bool was_in_use = !vrfs_.empty();
  CloseUnused(forwarding);
  for (const auto& [vrf, device] : forwarding.vrfs()) {
    Vrf& entry = vrfs_[vrf];
    entry.device = device;
    if (!entry.retry) entry.retry = MakeRetry([this, index = vrf] { return TryVrf(index); });
  }
  OpenAll();
  if (!vrfs_.empty()) {
    release_.Disarm();
  } else if (was_in_use) {
    release_.Arm(delays_.release);
  }
}

void RelaySockets::CloseUnused(const Forwarding& forwarding) {
  std::set<VrfIfindex> used;
  for (const RelayInstance& instance : forwarding.instances()) used.insert(instance.vrf);
  std::erase_if(vrfs_, [&](const auto& item) {
    const auto& [vrf, entry] = item;
    return entry.open ? !used.contains(vrf) : !forwarding.vrfs().contains(vrf);
  });
}

bool RelaySockets::OpenAll() {
  bool opened = TryClient();
  if (!client_) return false;
  for (const auto& [vrf, entry] : vrfs_) opened = TryVrf(vrf) || opened;
  return opened;
}

bool RelaySockets::TryClient() {
  if (client_ || vrfs_.empty()) {
    client_retry_->Succeeded();
    client_failure_.clear();
    return false;
  }
  try {
    client_ = MakeClient();
    Succeeded(*client_retry_, client_failure_, kClientSide);
    return true;
  } catch (const std::system_error& error) {
    Failed(*client_retry_, client_failure_, kClientSide, error.what());
    return false;
  }
}

bool RelaySockets::TryVrf(VrfIfindex vrf) {
  Vrf& entry = vrfs_.at(vrf);
  if (entry.open) return false;
  try {
    entry.open = MakeVrf(vrf, entry.device);
    ++version_;
    Succeeded(*entry.retry, entry.failure, SocketText(entry.device));
    return true;
  } catch (const std::system_error& error) {
    Failed(*entry.retry, entry.failure, SocketText(entry.device), error.what());
    return false;
  }
}

void RelaySockets::Succeeded(base::Retry& retry, std::string& failure, const std::string& socket) {
  retry.Succeeded();
  if (failure.empty()) return;
  ++version_;
  failure.clear();
  recoveries_.Error(socket + " is there again");
}

void RelaySockets::Failed(base::Retry& retry, std::string& failure, const std::string& socket,
                          const std::string& reason) {
  retry.Failed(socket + " is missing, trying again: " + reason);
  if (failure != reason) ++version_;
  failure = reason;
}

const std::string& RelaySockets::FailureOf(VrfIfindex vrf) const {
  static const std::string kNone;
  const auto entry = vrfs_.find(vrf);
  if (entry == vrfs_.end() || entry->second.open) return kNone;
  return client_ ? entry->second.failure : client_failure_;
}

std::vector<MissingSocket> RelaySockets::Missing() const {
  std::vector<MissingSocket> missing;
  for (const auto& [vrf, entry] : vrfs_) {
    if (!entry.open) missing.push_back({.vrf_device = entry.device, .reason = FailureOf(vrf)});
  }
  return missing;
}

VrfInodes RelaySockets::Inodes() const {
  VrfInodes inodes;
  for (const auto& [vrf, entry] : vrfs_) {
    if (entry.open) inodes[vrf] = entry.open->inode;
  }
  return inodes;
}

std::unique_ptr<RelaySockets::OpenClient> RelaySockets::MakeClient() {
  auto opened = std::make_unique<OpenClient>(opener_.OpenClientSocket());
  opened->events = std::make_unique<vxmw::IoSource>(
      mw_, opened->socket.socket->fd(), events(),
      [this](std::uint32_t /*events*/) { handlers_.on_requests(); });
  opened->ready = ready_.Add(opened->socket.socket->fd(), kClientKey);
  return opened;
}

std::unique_ptr<RelaySockets::OpenVrf> RelaySockets::MakeVrf(VrfIfindex vrf,
                                                             const std::string& device) {
  auto opened = std::make_unique<OpenVrf>(vrf, opener_.OpenVrfSocket(device));
  opened->inode = InodeOf(opened->socket.socket->fd());
  opened->events = std::make_unique<vxmw::IoSource>(
      mw_, opened->socket.socket->fd(), events(),
      [this, &socket = opened->socket](std::uint32_t /*events*/) { handlers_.on_replies(socket); });
  opened->ready = ready_.Add(opened->socket.socket->fd(), static_cast<std::uint32_t>(vrf));
  return opened;
}

std::uint32_t RelaySockets::events() const { return wake_up_ ? std::uint32_t{EPOLLIN} : 0; }

void RelaySockets::SetWakeUp(bool wake_up) {
  wake_up_ = wake_up;
  if (client_) client_->events->SetEvents(events());
  for (auto& [vrf, entry] : vrfs_) {
    if (entry.open) entry.open->events->SetEvents(events());
  }
}

Outboxes RelaySockets::VrfOutboxes() {
  Outboxes outboxes;
  ForEachVrf([&outboxes](VrfSocket& socket) { outboxes[socket.vrf] = &socket.outbox; });
  return outboxes;
}

}  // namespace dhcp_manager
