#include "platform/vxconfd/src/commit_tracker.h"

#include <malloc.h>

#include <utility>

#include "base/severity.h"

namespace vxconfd {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kCheckInterval{2000};
// Longer than a committer takes from storing a commit to announcing it.
constexpr milliseconds kAnnouncementDelay{200};
// The time spent comparing stays below this share of all time.
constexpr int kVerificationShare = 20;
// How long others may wait for their commits while one is delivered.
constexpr milliseconds kTakingInterval{20};

}  // namespace

CommitTracker::CommitTracker(vxmw_t* mw, const Log& log, TrackerCalls calls,
                             DispatcherLimits limits)
    : mw_(mw),
      log_(log),
      calls_(std::move(calls)),
      dispatcher_(mw,
                  DispatcherCalls{.deliver = calls_.deliver,
                                  .waiting = calls_.waiting,
                                  .mismatch = [this] { comparing_ = missed_ = true; },
                                  .idle = [this] { OnIdle(); }},
                  limits),
      timer_(mw, [this] { Check(); }) {}

void CommitTracker::Connect(const WatchedPaths& watched) {
  try {
    Subscribe(watched);
  } catch (const DatastoreError&) {
    Disconnect();
    throw;
  }
  timer_.Arm(kAnnouncementDelay);
}

void CommitTracker::Subscribe(const WatchedPaths& watched) {
  datastore_ = std::make_shared<Datastore>();
  modules_.clear();
  for (const char* path : watched.paths) modules_.insert(datastore_->ModuleOf(path));
  models_id_ = datastore_->models_id();
  const ContextPtr context = datastore_->CopyInstalledModels();
  if (modules_.empty()) {
    dispatcher_.Reset(std::make_shared<DataTree>(context));
    return;
  }
  datastore_->RequireAccessToFollow(modules_);
  // Before the data is read, so that no commit falls between.
  subscription_ = std::make_unique<Subscription>(
      mw_, *datastore_, modules_, watched.priority,
      SubscriptionCalls{.committed = [this](const lyd_node* diff) { OnCommit(diff); },
                        .missed = [this](bool more_to_come) { OnMissed(more_to_come); },
                        .failed =
                            [this](const std::string& reason) {
                              failure_ = reason;
                              timer_.Arm(milliseconds(0));
                            }});
  missed_ = dispatcher_.mirror() != nullptr;
  dispatcher_.Reset(missed_ ? CarryOver(context) : datastore_->ReadRunning(modules_, context));
  seen_.clear();
}

void CommitTracker::Disconnect() {
  timer_.Disarm();
  subscription_.reset();
  dispatcher_.Stop();
  datastore_.reset();
  failure_.clear();
  comparing_ = missed_ = suspected_ = false;
}

void CommitTracker::DeliverMissed() {
  if (missed_) CatchUp();
  dispatcher_.DeliverAll();
}

void CommitTracker::TakeWaiting() {
  const auto now = steady_clock::now();
  if (!subscription_ || now < next_taking_) return;
  next_taking_ = now + kTakingInterval;
  subscription_->TakeWaiting();
}

void CommitTracker::OnCommit(const lyd_node* diff) {
  const bool busy = dispatcher_.busy();
  try {
    if (!busy) FollowModels();
    if (!comparing_ && Take(diff)) return;
    comparing_ = true;
    busy ? dispatcher_.WakeWhenIdle() : CatchUp();
  } catch (const DatastoreError& error) {
    comparing_ = true;
    missed_ = true;
    log_.Error(error.what());
  }
}

bool CommitTracker::Take(const lyd_node* diff) {
  const DataTreePtr changes = CopyData(dispatcher_.mirror()->context(), diff);
  return changes && dispatcher_.Take({.changes = changes, .data = nullptr});
}

void CommitTracker::OnMissed(bool more_to_come) {
  comparing_ = true;
  missed_ = true;
  if (!more_to_come) timer_.Arm(milliseconds(0));
}

void CommitTracker::OnIdle() {
  if (!comparing_) return;
  try {
    FollowModels();
    CatchUp();
  } catch (const DatastoreError& error) {
    log_.Error(error.what());
  }
}

CommitTracker::Fresh CommitTracker::Compare() {
  Fresh fresh;
  fresh.modified = datastore_->LastModified(modules_);
  const DataTree& held = dispatcher_.mirror()->data();
  fresh.data = datastore_->ReadRunningUnlessEqual(modules_, held);
  fresh.difference =
      fresh.data ? Difference(held, *fresh.data) : std::make_shared<DataTree>(held.context());
  return fresh;
}

void CommitTracker::CatchUp() { Adopt(Compare()); }

void CommitTracker::Adopt(const Fresh& fresh) {
  comparing_ = true;
  timer_.Arm(kAnnouncementDelay);
  seen_ = fresh.modified;
  suspected_ = false;
  const bool missed = std::exchange(missed_, false);
  const lyd_node* const difference = fresh.difference->first();
  if (difference == nullptr) return;
  if (missed) ReportMissed(difference);
  dispatcher_.Take({.changes = fresh.difference, .data = fresh.data});
}

void CommitTracker::ReportMissed(const lyd_node* difference) {
  const int changes = CountChanges(difference);
  if (changes == 0) return;
  const std::string text =
      "commits were missed; " + std::to_string(changes) + " changes are delivered late";
  log_.Error(text);
  vxmw_gen_fault(base::kFaultCritical, __func__, __FILE__, __LINE__, text.c_str());
}

void CommitTracker::Check() {
  timer_.Arm(kCheckInterval);
  try {
    if (const std::string reason = LossReason(); !reason.empty()) {
      calls_.lost(reason);
      return;
    }
    if (dispatcher_.busy()) return;
    FollowModels();
    if (NeedsComparison()) {
      Verify();
      // Data as large as the mirror was freed, and the allocator would keep most of it.
      malloc_trim(0);
    }
    logged_.clear();
  } catch (const DatastoreError& error) {
    comparing_ = true;
    if (std::exchange(logged_, error.what()) != error.what()) log_.Error(error.what());
  }
}

std::string CommitTracker::LossReason() const {
  if (!failure_.empty()) return failure_;
  return subscription_ ? subscription_->LossReason() : datastore_->connection().LossReason();
}

bool CommitTracker::NeedsComparison() {
  if (!subscription_ || subscription_->HasWaiting()) return false;
  if (comparing_ || missed_) return true;
  // Commits that were delivered make a difference here, too: one of them may hide one that was not
  // announced.
  return steady_clock::now() >= next_verification_ && datastore_->LastModified(modules_) != seen_;
}

void CommitTracker::Verify() {
  const auto start = steady_clock::now();
  const Fresh fresh = Compare();
  next_verification_ = start + kVerificationShare * (steady_clock::now() - start);
  if (fresh.difference->first() == nullptr) {
    seen_ = fresh.modified;
    comparing_ = missed_ = suspected_ = false;
    return;
  }
  if (subscription_->HasWaiting()) return;
  if (!missed_ && !std::exchange(suspected_, true)) {
    comparing_ = true;
    timer_.Arm(kAnnouncementDelay);
    return;
  }
  missed_ = true;
  Adopt(fresh);
}

void CommitTracker::FollowModels() {
  const std::uint32_t models_id = datastore_->models_id();
  if (models_id == models_id_) return;
  dispatcher_.Reset(CarryOver(datastore_->CopyInstalledModels()));
  models_id_ = models_id;
  comparing_ = true;
  log_.Trace("the models of the configuration database have changed");
}

DataTreePtr CommitTracker::CarryOver(const ContextPtr& context) const {
  const lyd_node* const held = dispatcher_.mirror()->data().first();
  DataTreePtr data = CopyData(context, held);
  if (!data) data = CopyKnownData(context, held);
  if (data) return data;
  log_.Error("the new models do not allow what was read before; all of it is delivered again");
  return std::make_shared<DataTree>(context);
}

std::shared_ptr<confd::Snapshot> CommitTracker::TakeSnapshot(cdb_db_type database) {
  if (database != CDB_RUNNING) return datastore_->TakeSnapshot(database);
  const ContextPtr& context = dispatcher_.mirror()->context();
  const auto load = [datastore = datastore_, held = modules_,
                     context](const lys_module* module) -> std::shared_ptr<const lyd_node> {
    if (held.contains(module->name)) return nullptr;
    const DataTreePtr data = datastore->ReadRunning({module->name}, context);
    return {data, data->first()};
  };
  return dispatcher_.TakeSnapshot(load);
}

}  // namespace vxconfd
