#include "state/publisher.h"

#include <sys/epoll.h>

#include <chrono>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "base/packet_socket.h"
#include "base/service/log.h"
#include "protocol/control/client.h"
#include "state/state_tree.h"

namespace state {
namespace {

constexpr std::chrono::milliseconds kRetryDelay{1000};

// A reason that comes with every reading is logged so often in a row, and once an interval then.
constexpr double kLoggedReasons = 1;
constexpr std::chrono::seconds kReasonInterval{60};

// Makes an exception of an error of the datastore: "what: reason".
void ThrowIfError(int code, const char* what) {
  if (code != SR_ERR_OK) throw std::runtime_error(std::string(what) + ": " + sr_strerror(code));
}

// Connecting would make a repository where there is none, which is not for us to do.
void RequireRepository() {
  std::error_code error;
  if (!std::filesystem::is_directory(sr_get_repo_path(), error)) {
    throw std::runtime_error("there is no datastore");
  }
}

// The data models of a session, which stay as they are while this lives.
class SessionContext {
 public:
  explicit SessionContext(sr_session_ctx_t* session)
      : session_(session), context_(sr_session_acquire_context(session)) {}
  ~SessionContext() { sr_session_release_context(session_); }
  SessionContext(const SessionContext&) = delete;
  SessionContext& operator=(const SessionContext&) = delete;

  const ly_ctx* get() const { return context_; }

 private:
  sr_session_ctx_t* const session_;
  const ly_ctx* const context_;
};

Tree ReadState(sr_session_ctx_t* session, const std::filesystem::path& directory) {
  dhcp_relay::control::Connection manager(directory);
  const auto status = manager.Status();
  const auto relay = manager.State();
  const SessionContext context(session);
  return MakeStateTree(context.get(), status, relay);
}

}  // namespace

Publisher::Publisher(vxmw_t* mw, std::filesystem::path directory)
    : mw_(mw),
      directory_(std::move(directory)),
      retry_(
          mw, {.first = kRetryDelay, .longest = kRetryDelay},
          [](const std::string& reason) { base::LogError(reason); }, [this] { Connect(); }),
      refusals_(kLoggedReasons, kReasonInterval) {
  retry_.Start();
}

Publisher::~Publisher() { Close(); }

void Publisher::Connect() {
  try {
    RequireRepository();
    Subscribe();
    retry_.Succeeded();
  } catch (const std::runtime_error& error) {
    Close();
    retry_.Failed(std::string("no operational data, trying again: ") + error.what());
  }
}

void Publisher::Subscribe() {
  sr_conn_ctx_t* connection = nullptr;
  ThrowIfError(sr_connect(SR_CONN_DEFAULT, &connection), "cannot connect to the datastore");
  connection_.reset(connection);
  // It ends with its connection.
  sr_session_ctx_t* session = nullptr;
  ThrowIfError(sr_session_start(connection, SR_DS_OPERATIONAL, &session), "cannot start a session");
  sr_subscription_ctx_t* subscription = nullptr;
  const int code = sr_oper_get_subscribe(session, kStateModule, kStatePath, OnRead, this,
                                         SR_SUBSCR_NO_THREAD, &subscription);
  subscription_.reset(subscription);
  ThrowIfError(code, "cannot serve operational data");
  int pipe = -1;
  ThrowIfError(sr_get_event_pipe(subscription_.get(), &pipe), "cannot wait for readers");
  events_ = std::make_unique<vxmw::IoSource>(mw_, pipe, EPOLLIN,
                                             [this](std::uint32_t /*events*/) { ProcessEvents(); });
}

void Publisher::Close() {
  events_.reset();
  subscription_.reset();
  connection_.reset();
}

void Publisher::ProcessEvents() {
  if (sr_subscription_process_events(subscription_.get(), nullptr, nullptr) == SR_ERR_OK) return;
  Close();
  retry_.Failed("the datastore is lost");
}

int Publisher::OnRead(sr_session_ctx_t* session, std::uint32_t /*id*/, const char* /*module*/,
                      const char* /*path*/, const char* /*request_path*/, std::uint32_t /*request*/,
                      lyd_node** parent, void* self) noexcept {
  auto& publisher = *static_cast<Publisher*>(self);
  try {
    *parent = ReadState(session, publisher.directory_).release();
  } catch (const dhcp_relay::control::AccessError& error) {
    publisher.refusals_.Error(error.what());
  } catch (const base::ConnectionError&) {
    // Without a manager there is no state.
  } catch (const std::exception& error) {
    base::LogError(error.what());
    return SR_ERR_INTERNAL;
  }
  return SR_ERR_OK;
}

}  // namespace state
