#include "dhcp_manager/datapath/relay_sockets.h"

#include <sys/epoll.h>

#include <set>
#include <system_error>
#include <utility>

#include "base/service/log.h"

namespace dhcp_manager {
namespace {

void ReportFailure(const std::string& reason) { base::LogError(reason + "; trying again"); }

}  // namespace

RelaySockets::RelaySockets(vxmw_t* mw, SocketOpener& opener, Handlers handlers, SocketDelays delays)
    : mw_(mw),
      opener_(opener),
      handlers_(std::move(handlers)),
      delays_(delays),
      client_retry_(MakeRetry([this] { return OpenAll(); })),
      release_(mw, [this] { opener_.ReleasePort(); }) {}

std::unique_ptr<base::Retry> RelaySockets::MakeRetry(std::function<bool()> attempt) {
  const base::RetryDelays delays{.first = delays_.retry, .longest = delays_.retry};
  return std::make_unique<base::Retry>(mw_, delays, ReportFailure,
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
    return false;
  }
  try {
    client_ = MakeClient();
    client_retry_->Succeeded();
    return true;
  } catch (const std::system_error& error) {
    client_retry_->Failed(error.what());
    return false;
  }
}

bool RelaySockets::TryVrf(VrfIfindex vrf) {
  Vrf& entry = vrfs_.at(vrf);
  if (entry.open) return false;
  try {
    entry.open = MakeVrf(vrf, entry.device);
    entry.retry->Succeeded();
    return true;
  } catch (const std::system_error& error) {
    entry.retry->Failed(error.what());
    return false;
  }
}

std::unique_ptr<RelaySockets::OpenClient> RelaySockets::MakeClient() {
  auto opened = std::make_unique<OpenClient>(opener_.OpenClientSocket());
  opened->events = std::make_unique<vxmw::IoSource>(
      mw_, opened->socket.socket->fd(), events(),
      [this](std::uint32_t /*events*/) { handlers_.on_requests(); });
  return opened;
}

std::unique_ptr<RelaySockets::OpenVrf> RelaySockets::MakeVrf(VrfIfindex vrf,
                                                             const std::string& device) {
  auto opened = std::make_unique<OpenVrf>(vrf, opener_.OpenVrfSocket(device));
  opened->events = std::make_unique<vxmw::IoSource>(
      mw_, opened->socket.socket->fd(), events(),
      [this, &socket = opened->socket](std::uint32_t /*events*/) { handlers_.on_replies(socket); });
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
