#include "state/publisher.h"

#include <sys/epoll.h>

#include <chrono>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include <vxmw/vxmw.h>

#include "base/packet_socket.h"
#include "base/service/log.h"
#include "base/severity.h"
#include "datastore/error.h"
#include "datastore/library_paths.h"
#include "protocol/control/client.h"
#include "state/state_tree.h"

namespace state {
namespace {

using std::chrono::milliseconds;

constexpr base::RetryDelays kRetryDelays = {
    .first = milliseconds(100), .longest = milliseconds(2000), .patience = milliseconds(400)};
constexpr milliseconds kCheckInterval{2000};

// A reason that comes with every reading is logged so often in a row, and once an interval then.
constexpr double kLoggedReasons = 1;
constexpr std::chrono::seconds kReasonInterval{60};

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
          mw, kRetryDelays,
          [](const std::string& reason) {
            base::LogError("no operational data, trying again: " + reason);
          },
          [this] { Connect(); }),
      refusals_(kLoggedReasons, kReasonInterval),
      check_(mw, [this] { Check(); }) {
  retry_.Start();
}

void Publisher::Connect() {
  try {
    Subscribe();
    retry_.Succeeded();
    check_.Arm(kCheckInterval);
  } catch (const std::runtime_error& error) {
    datastore_.reset();
    retry_.Failed(error.what());
  }
}

void Publisher::Subscribe() {
  datastore_ = std::make_unique<Connected>();
  datastore::Subscription& subscription = datastore_->subscription;
  const auto subscribe = [this](sr_session_ctx_t* session, sr_subscription_ctx_t** added) {
    return sr_oper_get_subscribe(session, kStateModule, kStatePath, OnRead, this,
                                 SR_SUBSCR_NO_THREAD, added);
  };
  subscription.Add(kStateModule, subscribe, "cannot serve operational data");
  datastore_->events = std::make_unique<vxmw::IoSource>(
      mw_, subscription.pipe(), EPOLLIN, [this](std::uint32_t /*events*/) { ProcessEvents(); });
}

void Publisher::ProcessEvents() {
  try {
    datastore_->subscription.ProcessEvents("cannot take requests");
  } catch (const datastore::Error& error) {
    Leave(error.what());
  }
}

void Publisher::Check() {
  if (!LeaveIfLost()) check_.Arm(kCheckInterval);
}

bool Publisher::LeaveIfLost() {
  const std::string reason = datastore_->subscription.LossReason();
  if (!reason.empty()) Leave(reason);
  return !reason.empty();
}

void Publisher::Leave(const std::string& reason) {
  const std::string text = reason + "; connecting anew";
  base::LogError(text);
  vxmw_gen_fault(base::kFaultCritical, __func__, __FILE__, __LINE__, text.c_str());
  check_.Disarm();
  datastore_.reset();
  retry_.Failed(reason);
}

int Publisher::OnRead(sr_session_ctx_t* session, std::uint32_t /*id*/, const char* /*module*/,
                      const char* /*path*/, const char* /*request_path*/, std::uint32_t /*request*/,
                      lyd_node** parent, void* self) noexcept {
  const datastore::OwnSharedMemory own;
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
