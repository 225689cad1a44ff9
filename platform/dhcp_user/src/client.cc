#include "platform/dhcp_user/src/client.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/descriptor.h"
#include "base/packet_socket.h"

namespace dhcp_relay {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstRetry{50};
constexpr milliseconds kLongestRetry{1000};

// A manager that starts at the same time is nothing to tell of.
constexpr milliseconds kPatience{400};

constexpr int kSendBuffer = 4 * 1024 * 1024;
constexpr int kErrorLevel = 12;

void Log(const std::string& text) {
  static zlog_category_t* const category = vxmw_trace_register_category("dhcp_user");
  zlog(category, __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, __LINE__,
       kErrorLevel, "%s", text.c_str());
}

std::string OsError(const std::string& what) { return what + ": " + std::strerror(errno); }

// A manager runs as root, as this process's user, or as the user that its directory was made for.
void CheckPeer(int fd, const std::filesystem::path& directory) {
  const auto user = base::PeerUser(fd);
  struct stat status{};
  const bool has_owner = stat(directory.c_str(), &status) == 0;
  if (user && (*user == 0 || *user == geteuid() || (has_owner && *user == status.st_uid))) return;
  throw base::ConnectionError("the process behind " + directory.string() +
                              " is not the DHCP manager's");
}

}  // namespace

Client::Client(vxmw_t* mw, DhcpUser::CallbackIf* callbacks, std::filesystem::path directory,
               std::size_t queue_bound)
    : mw_(mw),
      callbacks_(callbacks),
      directory_(std::move(directory)),
      next_retry_(kFirstRetry),
      retry_(mw, [this] { Connect(); }),
      config_ready_(mw,
                    [this](bool ready) {
                      if (ready && waiting_dump_) CompleteDump(*std::exchange(waiting_dump_, {}));
                    }),
      sender_(queue_bound) {
  retry_.Arm(milliseconds(0));
}

base::Descriptor Client::OpenSocket() const {
  const std::filesystem::path path = directory_ / wire::kSocketName;
  const sockaddr_un address = base::SocketAddress(path);
  base::Descriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd) throw base::ConnectionError(OsError("cannot make a socket"));
  if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw base::ConnectionError(OsError("cannot connect to " + path.string()));
  }
  CheckPeer(fd.get(), directory_);
  // A larger buffer only saves queueing, so a refusal does not matter.
  if (setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUFFORCE, &kSendBuffer, sizeof(kSendBuffer)) != 0) {
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
  }
  return fd;
}

void Client::Connect() {
  try {
    socket_ = OpenSocket();
  } catch (const base::ConnectionError& error) {
    RetryLater(error.what());
    return;
  }
  logged_reason_.clear();
  next_retry_ = kFirstRetry;
  sender_.Reset(socket_.get());
  watching_for_room_ = false;
  events_ = std::make_unique<vxmw::IoSource>(mw_, socket_.get(), EPOLLIN,
                                             [this](std::uint32_t events) { OnEvents(events); });
  wire::ClientMessage hello;
  hello.mutable_hello()->set_version(wire::kVersion);
  hello.mutable_hello()->set_application(program_invocation_short_name);
  Check(sender_.Send(hello));
}

void Client::RetryLater(const std::string& reason) {
  if (next_retry_ >= kPatience && reason != logged_reason_) {
    Log("no DHCP manager, trying again: " + reason);
    logged_reason_ = reason;
  }
  retry_.Arm(next_retry_);
  next_retry_ = std::min(2 * next_retry_, kLongestRetry);
}

void Client::Disconnect(const std::string& reason) {
  Log(reason);
  events_.reset();
  socket_ = base::Descriptor();
  sender_.Reset(-1);
  RetryLater(reason);
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
  if (Check(sender_.Send(complete))) Check(sender_.Release());
}

void Client::CancelDump() {
  if (!std::exchange(waiting_dump_, std::nullopt)) return;
  callbacks_->OnDumpCancel();
  if (connected()) Check(sender_.Release());
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
    case Sender::Result::kBound:
      Disconnect("the DHCP manager takes too little; connecting anew to start over");
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
