#include "dhcp_manager/control/control_server.h"

#include <sys/epoll.h>

#include <utility>

#include "protocol/control/control.pb.h"

namespace dhcp_manager {
namespace {

// No request is larger; a larger packet is not parsed.
constexpr std::size_t kMaxRequestSize = 256;

constexpr std::uint32_t kReceiving = EPOLLIN;
constexpr std::uint32_t kAnswering = EPOLLIN | EPOLLOUT;

}  // namespace

ControlServer::ControlServer(vxmw_t* mw, SocketFile socket, const Resync& resync,
                             const Journal& journal, RelayState& relay,
                             std::chrono::milliseconds patience)
    : mw_(mw),
      resync_(resync),
      journal_(journal),
      relay_(relay),
      patience_(patience),
      turns_(mw, [this](Id id, std::uint32_t events) { OnTurn(id, events); }),
      listener_(mw, std::move(socket),
                [this](base::Descriptor client) { Accept(std::move(client)); }) {}

void ControlServer::Accept(base::Descriptor socket) {
  const auto user = base::PeerUser(socket.get());
  if (!user) return;
  if (!seats_.Take(*user)) {
    Refuse("user " + std::to_string(*user) + " has too many at once, or all users have");
    return;
  }
  Add(*user, std::move(socket));
}

void ControlServer::Add(uid_t user, base::Descriptor socket) {
  const int fd = socket.get();
  const Id id = ++latest_;
  const auto [client, added] = clients_.try_emplace(
      id, Client{.user = user,
                 .socket = std::move(socket),
                 .session = ControlSession(resync_, journal_, relay_, base::IsTrustedPeer(fd)),
                 .patience = vxmw::TimerSource(mw_, [this, id] { OnPatienceEnd(id); }),
                 .answer = nullptr,
                 .packet = {}});
  turns_.Add(fd, id, kReceiving);
  client->second.patience.Arm(patience_);
}

void ControlServer::Close(Id id) {
  const auto client = clients_.find(id);
  turns_.Remove(client->second.socket.get());
  seats_.Leave(client->second.user);
  clients_.erase(client);
}

void ControlServer::Refuse(const std::string& reason) {
  refusals_.Error("refused an operator's command: " + reason);
}

void ControlServer::OnPatienceEnd(Id id) {
  const Client& client = clients_.at(id);
  const std::string user = "user " + std::to_string(client.user);
  Refuse(user + (client.answer ? " does not read the answer" : " asks for nothing"));
  Close(id);
}

void ControlServer::OnTurn(Id id, std::uint32_t events) {
  Client& client = clients_.at(id);
  bool keep = false;
  try {
    keep = Serve(id, client, events);
  } catch (const base::ConnectionError& error) {
    Refuse("user " + std::to_string(client.user) + ": " + error.what());
  }
  if (!keep) Close(id);
}

bool ControlServer::Serve(Id id, Client& client, std::uint32_t events) {
  if (!client.answer) return Receive(id, client);
  // One answer at a time bounds what waits for a client that does not read.
  switch (reader_.Receive(client.socket.get())) {
    case base::PacketReader::Result::kPacket:
      throw base::ConnectionError("it asks again before it has read");
    case base::PacketReader::Result::kClosed:
      return false;
    case base::PacketReader::Result::kNothing:
      break;
  }
  return (events & EPOLLOUT) == 0 || SendNext(id, client);
}

bool ControlServer::Receive(Id id, Client& client) {
  switch (reader_.Receive(client.socket.get())) {
    case base::PacketReader::Result::kNothing:
      return true;
    case base::PacketReader::Result::kClosed:
      return false;
    case base::PacketReader::Result::kPacket:
      break;
  }
  if (reader_.packet().size() > kMaxRequestSize) throw base::ConnectionError("it asks at length");
  dhcp_relay::control::Request request;
  reader_.Parse(request);
  client.answer = client.session.Take(request);
  turns_.SetEvents(client.socket.get(), id, kAnswering);
  return SendNext(id, client);
}

bool ControlServer::SendNext(Id id, Client& client) {
  if (client.packet.empty()) client.packet = client.answer->Next();
  switch (base::SendPacket(client.socket.get(), client.packet)) {
    case base::SendResult::kLost:
      return false;
    case base::SendResult::kFull:
      return true;
    case base::SendResult::kSent:
      break;
  }
  client.packet.clear();
  client.patience.Arm(patience_);
  if (client.answer->complete()) Finish(id, client);
  return true;
}

void ControlServer::Finish(Id id, Client& client) {
  client.answer.reset();
  turns_.SetEvents(client.socket.get(), id, kReceiving);
}

}  // namespace dhcp_manager
