#include "dhcp_manager/control/control_server.h"

#include <sys/epoll.h>

#include <utility>

#include "base/service/log.h"
#include "protocol/control/control.pb.h"
#include "protocol/control/socket_name.h"

namespace dhcp_manager {
namespace {

constexpr mode_t kSocketMode = 0666;
constexpr std::size_t kMaxClients = 64;

}  // namespace

ControlServer::ControlServer(vxmw_t* mw, const std::filesystem::path& directory,
                             const Resync& resync, RelayState& relay)
    : mw_(mw),
      resync_(resync),
      relay_(relay),
      listener_(mw, directory / dhcp_relay::control::kSocketName, kSocketMode,
                [this](base::Descriptor client) { Accept(std::move(client)); }) {}

void ControlServer::Accept(base::Descriptor socket) {
  if (clients_.size() >= kMaxClients) {
    base::LogError("refused an operator's command: too many at once");
    return;
  }
  const int fd = socket.get();
  const auto client = clients_.insert(
      clients_.end(), {.socket = std::move(socket),
                       .session = ControlSession(resync_, relay_, base::IsTrustedPeer(fd)),
                       .events = nullptr,
                       .replies = {}});
  client->events = std::make_unique<vxmw::IoSource>(
      mw_, fd, EPOLLIN, [this, client](std::uint32_t events) { OnEvents(client, events); });
}

void ControlServer::OnEvents(ClientIterator client, std::uint32_t events) {
  bool keep = true;
  try {
    if ((events & EPOLLOUT) != 0) keep = Flush(*client);
    if (keep && (events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0) keep = Receive(*client);
  } catch (const base::ConnectionError& error) {
    base::LogError(std::string("an operator's command is refused: ") + error.what());
    keep = false;
  }
  if (!keep) clients_.erase(client);
}

bool ControlServer::Receive(Client& client) {
  switch (reader_.Receive(client.socket.get())) {
    case base::PacketReader::Result::kNothing:
      return true;
    case base::PacketReader::Result::kClosed:
      return false;
    case base::PacketReader::Result::kPacket:
      break;
  }
  return Answer(client);
}

bool ControlServer::Answer(Client& client) {
  dhcp_relay::control::Request request;
  reader_.Parse(request);
  // One answer at a time bounds what waits for a client that does not read.
  if (!client.replies.empty()) throw base::ConnectionError("it asks again before it has read");
  client.replies = client.session.Answer(request);
  return Flush(client);
}

bool ControlServer::Flush(Client& client) {
  while (!client.replies.empty()) {
    const base::SendResult result = base::SendPacket(client.socket.get(), client.replies.front());
    if (result == base::SendResult::kLost) return false;
    if (result == base::SendResult::kFull) break;
    client.replies.pop_front();
  }
  client.events->SetEvents(client.replies.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
  return true;
}

}  // namespace dhcp_manager
