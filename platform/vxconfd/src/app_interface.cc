#include <zlog.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vxconfd/vxconfd.h>
#include <vxmw/event.h>

#include "platform/vxconfd/src/change_walk.h"
#include "platform/vxconfd/src/datastore.h"
#include "platform/vxconfd/src/subscription.h"

namespace vxconfd {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstRetry{100};
constexpr milliseconds kLongestRetry{2000};

constexpr int kTraceLevel = 10;
constexpr int kErrorLevel = 12;

}  // namespace

class AppInterface::Impl {
 public:
  Impl(vxmw_t* mw, zlog_category_t* category, std::string application, ELEM_CONFD_PHASE_ET phase)
      : mw_(mw), category_(category), application_(std::move(application)), phase_(phase) {}

  void AddHandler(ConfigHandler* handler) { handlers_.push_back(handler); }

  // `attempt` connects once and says whether it worked.
  void ConnectUntilDone(std::function<bool()> attempt) {
    if (attempt()) return;
    retry_ = std::make_unique<vxmw::TimerSource>(mw_, [this, attempt = std::move(attempt)] {
      if (!attempt()) RetryLater();
    });
    RetryLater();
  }

  // Null, with the reason logged once, when the datastore or a model is not there yet.
  std::shared_ptr<Datastore> Connect() {
    try {
      auto datastore = std::make_shared<Datastore>(mw_);
      Subscribe(*datastore);
      return datastore;
    } catch (const DatastoreError& error) {
      LogWaiting(error.what());
      return nullptr;
    }
  }

  void RunInitialPhases() {
    zlog(category_, __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, __LINE__,
         kTraceLevel, "%s: connected to the configuration database", application_.c_str());
    for (ConfigHandler* handler : handlers_) handler->ConfdConnected(phase_);
    for (ConfigHandler* handler : handlers_) handler->LoadInitialConfig();
    for (ConfigHandler* handler : handlers_) handler->ApplyInitialConfig();
    vxmw::SetConfigReady(mw_, true);
  }

  void Stop() {
    vxmw::SetConfigReady(mw_, false);
    subscription_.reset();
  }

 private:
  void Subscribe(Datastore& datastore) {
    std::set<std::string> modules;
    std::uint32_t priority = 0;
    for (const ConfigHandler* handler : handlers_) {
      for (const SubscriptionPoint& point : handler->GetSubscriptionPoints()) {
        modules.insert(datastore.ModuleOf(point.path));
        priority = std::max(priority, static_cast<std::uint32_t>(point.priority));
      }
    }
    if (modules.empty()) return;
    subscription_ = std::make_unique<Subscription>(
        mw_, datastore, modules, priority,
        [this, &datastore](const lyd_node* diff) { Deliver(datastore, diff); });
  }

  void Deliver(Datastore& datastore, const lyd_node* diff) {
    const Datastore::SharedSnapshot shared(datastore);
    for (ConfigHandler* handler : handlers_) {
      const auto& points = handler->GetSubscriptionPoints();
      if (std::none_of(points.begin(), points.end(), [diff](const SubscriptionPoint& point) {
            return HasChanges(diff, point);
          })) {
        continue;
      }
      handler->StartCommit();
      for (const SubscriptionPoint& point : points) WalkChanges(diff, point);
      handler->ApplyCommitConfig();
    }
  }

  void RetryLater() {
    retry_->Arm(next_retry_);
    next_retry_ = std::min(2 * next_retry_, kLongestRetry);
  }

  void LogWaiting(const std::string& reason) {
    if (reason == logged_reason_) return;
    logged_reason_ = reason;
    zlog(category_, __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, __LINE__,
         kErrorLevel, "%s: waiting for the configuration database: %s", application_.c_str(),
         reason.c_str());
  }

  vxmw_t* const mw_;
  zlog_category_t* const category_;
  const std::string application_;
  const ELEM_CONFD_PHASE_ET phase_;
  std::vector<ConfigHandler*> handlers_;
  std::string logged_reason_;
  milliseconds next_retry_ = kFirstRetry;
  std::unique_ptr<vxmw::TimerSource> retry_;
  std::unique_ptr<Subscription> subscription_;
};

AppInterface::AppInterface(vxmw_t* mw, zlog_category_t* category, const char* application,
                           ELEM_CONFD_PHASE_ET phase)
    : impl_(std::make_unique<Impl>(mw, category, application, phase)) {}

AppInterface::~AppInterface() { impl_->Stop(); }

void AppInterface::AddConfigHandler(ConfigHandler* handler) {
  if (handler == nullptr) return;
  handler->set_interface(this);
  impl_->AddHandler(handler);
}

void AppInterface::Init(int flags) {
  if (flags != 0) throw std::invalid_argument("AppInterface::Init: flags must be 0");
  impl_->ConnectUntilDone([this] {
    datastore_ = impl_->Connect();
    if (!datastore_) return false;
    connected_ = true;
    impl_->RunInitialPhases();
    return true;
  });
}

}  // namespace vxconfd
