#include "daemon_server.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <utility>

#include "log.h"

namespace dhcp_manager {
namespace {

namespace wire = dhcp_relay::wire;

// Packets taken in one turn of the loop, so that the manager's other work gets its turn, too.
constexpr int kPacketsPerTurn = 256;

constexpr mode_t kSocketMode = 0600;

}  // namespace

DaemonServer::DaemonServer(vxmw_t* mw, const std::filesystem::path& directory, Resync& resync,
                           Journal& journal)
    : mw_(mw),
      resync_(resync),
      journal_(journal),
      listener_(mw, directory / wire::kSocketName, kSocketMode,
                [this](wire::Descriptor client) { Accept(std::move(client)); }) {}

DaemonServer::~DaemonServer() {
  const auto dump = resync_.outstanding();
  if (!client_ || !dump) return;
  wire::ManagerMessage cancel;
  cancel.mutable_dump_cancel()->set_id(*dump);
  Send(cancel);
}

void DaemonServer::Accept(wire::Descriptor client) {
  if (!wire::IsTrustedPeer(client.get())) {
    LogError("refused a daemon: it runs as another user");
    return;
  }
  if (client_) {
    LogError("refused a second daemon: one is connected");
    return;
  }
  client_ = std::move(client);
  session_.emplace(resync_, journal_);
  events_ = std::make_unique<vxmw::IoSource>(mw_, client_.get(), EPOLLIN,
                                             [this](std::uint32_t /*events*/) { OnReadable(); });
}

void DaemonServer::Close(const std::string& reason) {
  LogError("the connection of the daemon is closed: " + reason);
  events_.reset();
  client_ = wire::Descriptor();
  resync_.Disconnected();
}

void DaemonServer::OnReadable() {
  try {
    ReceiveSome();
  } catch (const wire::WireError& error) {
    Close(error.what());
  }
  journal_.Flush();
}

void DaemonServer::ReceiveSome() {
  for (int i = 0; i < kPacketsPerTurn; ++i) {
    switch (reader_.Receive(client_.get())) {
      case wire::PacketReader::Result::kNothing:
        return;
      case wire::PacketReader::Result::kClosed:
        throw wire::WireError("the daemon is gone");
      case wire::PacketReader::Result::kPacket:
        break;
    }
    reader_.Parse(message_);
    if (const auto answer = session_->Handle(message_)) Send(*answer);
  }
}

void DaemonServer::Send(const wire::ManagerMessage& message) {
  // The manager says so little that its socket never fills; a client that is gone is noticed when
  // reading.
  wire::SendPacket(client_.get(), message.SerializeAsString());
}

}  // namespace dhcp_manager
