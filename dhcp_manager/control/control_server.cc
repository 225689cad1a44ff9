#include "dhcp_manager/control/control_server.h"

#include <sys/epoll.h>

#include <utility>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/service/log.h"
#include "dhcp_manager/control/state_writer.h"
#include "dhcp_manager/control/table_writer.h"

namespace dhcp_manager {
namespace {

namespace wire = dhcp_relay::wire;

constexpr mode_t kSocketMode = 0666;
constexpr std::size_t kMaxClients = 64;

}  // namespace

ControlServer::ControlServer(vxmw_t* mw, const std::filesystem::path& directory,
                             const Resync& resync, RelayState& relay)
    : mw_(mw),
      resync_(resync),
      relay_(relay),
      listener_(mw, directory / kControlSocketName, kSocketMode,
                [this](base::Descriptor client) { Accept(std::move(client)); }) {}

void ControlServer::Accept(base::Descriptor socket) {
  if (clients_.size() >= kMaxClients) {
    base::LogError("refused an operator's command: too many at once");
    return;
  }
  const auto client = clients_.emplace(clients_.end());
  client->socket = std::move(socket);
  client->events = std::make_unique<vxmw::IoSource>(
      mw_, client->socket.get(), EPOLLIN,
      [this, client](std::uint32_t events) { OnEvents(client, events); });
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
  control::Request request;
  reader_.Parse(request);
  return Answer(client, request);
}

bool ControlServer::Answer(Client& client, const control::Request& request) {
  // One answer at a time bounds what waits for a client that does not read.
  if (!client.replies.empty()) throw base::ConnectionError("it asks again before it has read");
  switch (request.kind()) {
    case control::Request::TABLE:
      client.replies = WriteTable(resync_.table());
      break;
    case control::Request::STATUS:
      client.replies.push_back(Status());
      break;
    case control::Request::STATE:
      client.replies = WriteState(relay_.forwarding(), relay_.counters());
      break;
    case control::Request::CLEAR_COUNTERS:
      if (!base::IsTrustedPeer(client.socket.get())) {
        throw base::ConnectionError("another user may not clear the counters");
      }
      relay_.ClearCounters();
      client.replies.push_back(Status());
      break;
    default:
      throw base::ConnectionError("it asks for something that is not known here");
  }
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

std::string ControlServer::Status() const {
  control::Reply reply;
  control::Status& status = *reply.mutable_status();
  status.set_connected(resync_.state() != Resync::State::kDisconnected);
  status.set_in_sync(resync_.state() == Resync::State::kInSync);
  status.set_calls(resync_.calls());
  status.set_dumps(resync_.dumps());
  reply.set_last(true);
  return reply.SerializeAsString();
}

}  // namespace dhcp_manager
