#include "state/publisher.h"

#include <sys/epoll.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "base/packet_socket.h"
#include "base/service/log.h"
#include "protocol/control/client.h"
#include "state/state_tree.h"

namespace state {
namespace {

constexpr std::chrono::milliseconds kRetry{1000};

void Check(int code, const char* what) {
  if (code != SR_ERR_OK) throw std::runtime_error(std::string(what) + ": " + sr_strerror(code));
}

// Connecting would make a repository where there is none, which is not for us to do.
bool IsRepositoryThere() {
  std::error_code error;
  return std::filesystem::is_directory(sr_get_repo_path(), error);
}

}  // namespace

Publisher::Publisher(vxmw_t* mw, std::filesystem::path directory)
    : mw_(mw), directory_(std::move(directory)), retry_(mw, [this] { Connect(); }) {
  retry_.Arm(std::chrono::milliseconds(0));
}

Publisher::~Publisher() { Close(); }

void Publisher::Connect() {
  try {
    if (!IsRepositoryThere()) throw std::runtime_error("there is no datastore");
    Subscribe();
    logged_reason_.clear();
  } catch (const std::runtime_error& error) {
    Close();
    if (logged_reason_ != error.what()) {
      base::LogError(std::string("no operational data, trying again: ") + error.what());
    }
    logged_reason_ = error.what();
    retry_.Arm(kRetry);
  }
}

void Publisher::Subscribe() {
  sr_conn_ctx_t* connection = nullptr;
  Check(sr_connect(SR_CONN_DEFAULT, &connection), "cannot connect to the datastore");
  connection_.reset(connection);
  // It ends with its connection.
  sr_session_ctx_t* session = nullptr;
  Check(sr_session_start(connection, SR_DS_OPERATIONAL, &session), "cannot start a session");
  sr_subscription_ctx_t* subscription = nullptr;
  const int code = sr_oper_get_subscribe(session, kStateModule, kStatePath, OnRead, this,
                                         SR_SUBSCR_NO_THREAD, &subscription);
  subscription_.reset(subscription);
  Check(code, "cannot serve operational data");
  int pipe = -1;
  Check(sr_get_event_pipe(subscription_.get(), &pipe), "cannot wait for readers");
  events_ = std::make_unique<vxmw::IoSource>(mw_, pipe, EPOLLIN,
                                             [this](std::uint32_t /*events*/) { ProcessEvents(); });
}

void Publisher::Close() {
  events_.reset();
  subscription_.reset();
  connection_.reset();
}

void Publisher::ProcessEvents() {
  if (sr_subscription_process_events(subscription_.get(), nullptr, nullptr) != SR_ERR_OK) {
    base::LogError("the datastore is lost");
    Close();
    retry_.Arm(kRetry);
  }
}

int Publisher::OnRead(sr_session_ctx_t* session, std::uint32_t /*id*/, const char* /*module*/,
                      const char* /*path*/, const char* /*request_path*/, std::uint32_t /*request*/,
                      lyd_node** parent, void* self) noexcept {
  const auto* const publisher = static_cast<const Publisher*>(self);
  try {
    dhcp_relay::control::Connection manager(publisher->directory_);
    const auto status = manager.Status();
    const auto relaying = manager.State();
    *parent = MakeStateTree(sr_session_acquire_context(session), status, relaying);
  } catch (const base::ConnectionError&) {
    // No manager, no state.
    return SR_ERR_OK;
  } catch (const std::exception& error) {
    base::LogError(error.what());
    sr_session_release_context(session);
    return SR_ERR_INTERNAL;
  }
  sr_session_release_context(session);
  return SR_ERR_OK;
}

}  // namespace state
