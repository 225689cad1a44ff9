#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include <vxconfd/vxconfd.h>
#include <vxmw/event.h>

#include "base/service/retry.h"
#include "base/severity.h"
#include "platform/vxconfd/src/access.h"
#include "platform/vxconfd/src/commit_tracker.h"
#include "platform/vxconfd/src/delivery.h"
#include "platform/vxconfd/src/log.h"

namespace vxconfd {
namespace {

using std::chrono::milliseconds;

constexpr base::RetryDelays kRetryDelays = {.first = milliseconds(100),
                                            .longest = milliseconds(2000)};

}  // namespace

class AppInterface::Impl {
 public:
  Impl(AppInterface& owner, vxmw_t* mw, zlog_category_t* category, const char* application,
       ELEM_CONFD_PHASE_ET phase)
      : owner_(owner),
        mw_(mw),
        phase_(phase),
        log_(category, application),
        delivery_(log_, [this] { return GoOn(); }),
        tracker_(std::make_shared<CommitTracker>(
            mw, log_,
            TrackerCalls{.deliver = [this](const lyd_node* changes) { return Deliver(changes); },
                         .waiting = [this](bool waiting) { ReportPending(waiting); },
                         .lost = [this](const std::string& reason) { Lose(reason); }})),
        retry_(
            mw, kRetryDelays, [this](const std::string& reason) { ReportWaiting(reason); },
            [this] { Connect(); }) {}

  void AddHandler(ConfigHandler* handler) { delivery_.Add(handler); }

  // Connects, or tries again later.
  void Connect() {
    try {
      tracker_->Connect(delivery_.watched());
    } catch (const DatastoreError& error) {
      denied_ = dynamic_cast<const AccessDenied*>(&error) != nullptr;
      retry_.Failed(error.what());
      return;
    }
    denied_ = false;
    retry_.Succeeded();
    RunPhases();
  }

  void Stop() {
    vxmw::SetConfigReady(mw_, false);
    tracker_->Disconnect();
  }

 private:
  // Between the steps of a delivery.
  bool GoOn() {
    if (!vxmw::KeepAlive(mw_)) return false;
    tracker_->TakeWaiting();
    return true;
  }

  // One that is given up, or ended by an exception, is never over: the process is to end, and the
  // manager must not take a part of a commit for the whole.
  bool Deliver(const lyd_node* changes) {
    vxmw::SetDelivering(mw_, true);
    if (!delivery_.Deliver(changes)) return false;
    vxmw::SetDelivering(mw_, false);
    return true;
  }

  void RunInitialPhases() {
    vxmw::SetDelivering(mw_, true);
    delivery_.RunInitialPhases();
    vxmw::SetDelivering(mw_, false);
  }

  // Ready from the end of the initial phases on, but for the times when commits wait.
  void ReportPending(bool waiting) {
    if (phases_done_) vxmw::SetConfigReady(mw_, !waiting);
  }

  void RunPhases() {
    owner_.tracker_ = tracker_;
    owner_.connected_ = true;
    log_.Trace("connected to the configuration database");
    delivery_.ReportConnected(phase_);
    try {
      tracker_->DeliverMissed();
    } catch (const DatastoreError& error) {
      Lose(error.what());
      return;
    }
    RunInitialPhases();
    phases_done_ = true;
    vxmw::SetConfigReady(mw_, true);
  }

  // A datastore that is not there yet may come; rights that are missing are for somebody to give.
  void ReportWaiting(const std::string& reason) {
    const std::string text = "waiting for the configuration database: " + reason;
    log_.Error(text);
    if (!denied_) return;
    vxmw_gen_fault(base::kFaultCritical, __func__, __FILE__, __LINE__, text.c_str());
  }

  void Lose(const std::string& reason) {
    const std::string text = "connection to the configuration database lost: " + reason;
    log_.Error(text);
    vxmw_gen_fault(base::kFaultCritical, __func__, __FILE__, __LINE__, text.c_str());
    owner_.connected_ = false;
    phases_done_ = false;
    owner_.tracker_.reset();
    vxmw::SetConfigReady(mw_, false);
    tracker_->Disconnect();
    delivery_.ReportDisconnected();
    retry_.Failed(reason);
  }

  AppInterface& owner_;
  vxmw_t* const mw_;
  const ELEM_CONFD_PHASE_ET phase_;
  const Log log_;
  Delivery delivery_;
  const std::shared_ptr<CommitTracker> tracker_;
  bool denied_ = false;  // the latest attempt to connect failed for want of rights
  base::Retry retry_;
  bool phases_done_ = false;  // of this connection
};

AppInterface::AppInterface(vxmw_t* mw, zlog_category_t* category, const char* application,
                           ELEM_CONFD_PHASE_ET phase)
    : impl_(std::make_unique<Impl>(*this, mw, category, application, phase)) {}

AppInterface::~AppInterface() { impl_->Stop(); }

void AppInterface::AddConfigHandler(ConfigHandler* handler) {
  if (handler == nullptr) return;
  handler->set_interface(this);
  impl_->AddHandler(handler);
}

void AppInterface::Init(int flags) {
  if (flags != 0) throw std::invalid_argument("AppInterface::Init: flags must be 0");
  impl_->Connect();
}

}  // namespace vxconfd
