#include "dhcp_manager/control/config_server.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <utility>

#include <vxmw/vxmw.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/severity.h"

namespace dhcp_manager {
namespace {

namespace wire = dhcp_relay::wire;

// Packets taken in one turn of the loop, so that the manager's other work gets its turn, too.
constexpr int kPacketsPerTurn = 256;

}  // namespace

ConfigServer::ConfigServer(vxmw_t* mw, SocketFile socket, Resync& resync, Journal& journal,
                           std::optional<uid_t> daemon_user,
                           std::chrono::milliseconds commit_patience)
    : mw_(mw),
      resync_(resync),
      journal_(journal),
      daemon_user_(daemon_user),
      commit_patience_(commit_patience),
      commit_stopped_(mw, [this] { OnCommitStopped(); }),
      listener_(mw, std::move(socket),
                [this](base::Descriptor client) { Accept(std::move(client)); }) {}

ConfigServer::~ConfigServer() {
  const auto dump = resync_.outstanding();
  if (!client_ || !dump) return;
  wire::ManagerMessage cancel;
  cancel.mutable_dump_cancel()->set_id(*dump);
  Send(cancel);
}

bool ConfigServer::IsDaemon(int fd) const {
  return base::IsTrustedPeer(fd) || (daemon_user_ && base::PeerUser(fd) == daemon_user_);
}

void ConfigServer::Accept(base::Descriptor client) {
  if (!IsDaemon(client.get())) {
    refusals_.Error("refused a daemon: it runs as another user");
    return;
  }
  if (client_) {
    refusals_.Error("refused a second daemon: one is connected");
    return;
  }
  client_ = std::move(client);
  session_.emplace(resync_, journal_);
  events_ = std::make_unique<vxmw::IoSource>(mw_, client_.get(), EPOLLIN,
                                             [this](std::uint32_t /*events*/) { OnReadable(); });
}

void ConfigServer::Close(const std::string& reason) {
  refusals_.Error("the connection of the daemon is closed: " + reason);
  events_.reset();
  client_ = base::Descriptor();
  resync_.Disconnected();
}

void ConfigServer::OnReadable() {
  try {
    ReceiveSome();
  } catch (const base::ConnectionError& error) {
    Close(error.what());
  }
  WriteJournal();
  WaitForCommit();
}

void ConfigServer::WaitForCommit() {
  if (resync_.commit_open()) {
    commit_stopped_.Arm(commit_patience_);
  } else {
    commit_stopped_.Disarm();
  }
}

void ConfigServer::OnCommitStopped() {
  const std::string reason = "the rest of a commit does not come";
  vxmw_gen_fault(base::kFaultError, __func__, __FILE__, __LINE__,
                 ("the DHCP manager disconnects the daemon: " + reason).c_str());
  Close(reason);
}

// Relaying goes on without its journal.
void ConfigServer::WriteJournal() {
  const auto fault = journal_.Flush();
  if (!fault) return;
  refusals_.Error(*fault);
  vxmw_gen_fault(base::kFaultError, __func__, __FILE__, __LINE__, fault->c_str());
}

void ConfigServer::ReceiveSome() {
  for (int i = 0; i < kPacketsPerTurn; ++i) {
    switch (reader_.Receive(client_.get())) {
      case base::PacketReader::Result::kNothing:
        return;
      case base::PacketReader::Result::kClosed:
        throw base::ConnectionError("the daemon is gone");
      case base::PacketReader::Result::kPacket:
        break;
    }
    reader_.Parse(message_);
    if (const auto answer = session_->Handle(message_)) Send(*answer);
  }
}

void ConfigServer::Send(const wire::ManagerMessage& message) {
  // The manager says so little that its socket never fills; a client that is gone is noticed when
  // reading.
  base::SendPacket(client_.get(), message.SerializeAsString());
}

}  // namespace dhcp_manager
