#include "platform/dhcp_user/src/client.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>
#include <stdexcept>
#include <utility>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/service/log.h"
#include "base/socket_buffers.h"

namespace dhcp_relay {
namespace {

using std::chrono::milliseconds;

// A manager that starts at the same time is not reported as missing.
constexpr base::RetryDelays kRetryDelays{
    .first = milliseconds(50), .longest = milliseconds(1000), .patience = milliseconds(400)};

constexpr int kSendBuffer = 4 * 1024 * 1024;

// Starts the log with every line, since a client may be made before the trace service is.
void Log(const std::string& text, const base::SourceLine& where = base::SourceLine::Current()) {
  base::StartLog("dhcp_user");
  base::LogError(text, where);
}

// A manager runs as root, as this process's user, or as the user that its directory was made for.
void CheckPeer(int fd, const std::filesystem::path& directory) {
  if (base::IsTrustedPeer(fd)) return;
  struct stat status{};
  const bool has_owner = stat(directory.c_str(), &status) == 0;
  if (has_owner && base::PeerUser(fd) == status.st_uid) return;
  throw base::ConnectionError("the process behind " + directory.string() +
                              " is not the DHCP manager's");
}

}  // namespace

Client::Client(vxmw_t* mw, DhcpUser::CallbackIf* callbacks, std::filesystem::path directory,
               std::size_t queue_limit)
    : mw_(mw),
      callbacks_(callbacks),
      directory_(std::move(directory)),
      retry_(
          mw, kRetryDelays,
          [](const std::string& reason) { Log("no DHCP manager, trying again: " + reason); },
          [this] { Connect(); }),
      config_ready_(mw, [this](bool ready) { OnConfigReady(ready); }),
      delivery_(mw, [this](bool delivering) { OnDelivering(delivering); }),
      sender_(queue_limit) {
  retry_.Start();
}

base::Descriptor Client::OpenSocket() const {
  base::Descriptor fd = base::ConnectPacketSocket(directory_ / wire::kSocketName, SOCK_NONBLOCK);
  CheckPeer(fd.get(), directory_);
  base::SetSendBuffer(fd.get(), kSendBuffer);
  return fd;
}

void Client::Connect() {
  try {
    socket_ = OpenSocket();
  } catch (const std::runtime_error& error) {
    retry_.Failed(error.what());
    return;
  }
  answered_ = dumped_ = false;
  sender_.Reset(socket_.get());
  watching_for_room_ = false;
  events_ = std::make_unique<vxmw::IoSource>(mw_, socket_.get(), EPOLLIN,
                                             [this](std::uint32_t events) { OnEvents(events); });
  wire::ClientMessage hello;
  hello.mutable_hello()->set_version(wire::kVersion);
  hello.mutable_hello()->set_application(program_invocation_short_name);
  Check(sender_.Send(hello));
}

void Client::Disconnect(const std::string& reason) {
  // Else the retry reports it, once.
  if (answered_) Log(reason);
  events_.reset();
  socket_ = base::Descriptor();
  sender_.Reset(-1);
  retry_.Failed(reason);
  CancelDump();
}

void Client::OnEvents(std::uint32_t events) {
  if ((events & EPOLLOUT) != 0) {
    if (!Check(sender_.Flush())) return;
  }
  if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0) ReceiveAll();
}

void Client::ReceiveAll() {
  try {
    while (connected()) {
      const auto result = reader_.Receive(socket_.get());
      if (result == base::PacketReader::Result::kNothing) return;
      if (result == base::PacketReader::Result::kClosed) {
        Disconnect("the DHCP manager closed the connection");
        return;
      }
      wire::ManagerMessage message;
      reader_.Parse(message);
      Handle(message);
    }
  } catch (const base::ConnectionError& error) {
    Disconnect(error.what());
  }
}

void Client::Handle(const wire::ManagerMessage& message) {
  switch (message.body_case()) {
    case wire::ManagerMessage::kDumpRequest:
      answered_ = true;
      retry_.Succeeded();
      CancelDump();
      if (connected()) BeginDump(message.dump_request().id());
      break;
    case wire::ManagerMessage::kDumpCancel:
      if (waiting_dump_ == message.dump_cancel().id()) CancelDump();
      break;
    case wire::ManagerMessage::BODY_NOT_SET:
      throw base::ConnectionError("the DHCP manager sent a message that is not known here");
  }
}

void Client::BeginDump(std::uint32_t id) {
  wire::ClientMessage begin;
  begin.mutable_dump_begin()->set_id(id);
  dumped_ = false;
  if (!Check(sender_.Send(begin))) return;
  sender_.Hold();
  callbacks_->OnDumpRequest();
  if (!connected()) return;
  if (vxmw::ConfigReady(mw_)) {
    CompleteDump(id);
  } else {
    waiting_dump_ = id;
  }
}

void Client::CompleteDump(std::uint32_t id) {
  wire::ClientMessage complete;
  complete.mutable_dump_complete()->set_id(id);
  dumped_ = true;
  if (Check(sender_.Send(complete))) Check(sender_.Release());
}

void Client::CancelDump() {
  if (!std::exchange(waiting_dump_, std::nullopt)) return;
  callbacks_->OnDumpCancel();
  if (connected()) Check(sender_.Release());
}

void Client::OnConfigReady(bool ready) {
  if (ready && waiting_dump_) {
    CompleteDump(*std::exchange(waiting_dump_, {}));
  } else if (connected() && dumped_) {
    wire::ClientMessage pending;
    pending.set_commits_pending(!ready);
    Check(sender_.Send(pending));
  }
}

// What is delivered while a dump waits is a part of the dump.
void Client::OnDelivering(bool delivering) {
  if (!connected() || waiting_dump_) return;
  if (delivering) {
    sender_.BeginCommit();
  } else {
    Check(sender_.EndCommit());
  }
}

void Client::Send(const wire::Call& call) {
  if (const auto fault = wire::Fault(call)) {
    Log("a call that cannot be sent is dropped: " + *fault);
    return;
  }
  if (connected()) Check(sender_.Send(call));
}

bool Client::Check(Sender::Result result) {
  switch (result) {
    case Sender::Result::kOk:
      WatchForRoom();
      return true;
    case Sender::Result::kLost:
      Disconnect("the DHCP manager is gone");
      return false;
    case Sender::Result::kOverLimit:
      Disconnect("queue limit exceeded; reconnecting");
      return false;
  }
  return false;
}

void Client::WatchForRoom() {
  if (watching_for_room_ == sender_.waiting()) return;
  watching_for_room_ = sender_.waiting();
  events_->SetEvents(watching_for_room_ ? EPOLLIN | EPOLLOUT : EPOLLIN);
}

}  // namespace dhcp_relay
