#include "save/service.h"

#include <algorithm>
#include <exception>
#include <system_error>

#include "base/service/log.h"
#include "save/config_store.h"
#include "save/saver.h"

namespace save {
namespace {

using dhcp_relay::saving::SaveState;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr base::RetryDelays kRetryDelays = {
    .first = milliseconds(100), .longest = milliseconds(5000), .patience = milliseconds(400)};

// Between two looks. With what is gathered and the save itself, a commit is on the disk within a
// second. While a large configuration changes all the time, most of the time is the committers'.
constexpr milliseconds kShortestInterval{200};
constexpr milliseconds kLongestInterval{400};
constexpr int kIdleShare = 2;

}  // namespace

Service::Service(vxmw_t* mw, dhcp_relay::saving::StatusFile& status)
    : status_(status),
      pending_(PendingFileOfDatastore()),
      retry_(
          mw, kRetryDelays, [this](const std::string& reason) { Fail(reason); },
          [this] { Work(); }),
      timer_(mw, [this] { Work(); }) {
  retry_.Start();
}

void Service::Work() {
  try {
    const milliseconds pause = failed_ ? Repair() : Look();
    retry_.Succeeded();
    failed_ = false;
    timer_.Arm(pause);
  } catch (const DatastoreLost& error) {
    Lose(error.what());
  } catch (const std::exception& error) {
    retry_.Failed(error.what());
  }
}

Connected& Service::Datastore() {
  if (!datastore_) datastore_ = std::make_unique<Connected>(pending_);
  return *datastore_;
}

milliseconds Service::Look() {
  using Task = ChangeWatch::Task;
  const Task task = watch_.Look(Datastore().store().LastModified(), steady_clock::now());
  if (task == Task::kGather) {
    Publish({SaveState::kSaving, {}});
    return ChangeWatch::kGatherTime;
  }
  const milliseconds pause = task == Task::kSave ? Save() : kShortestInterval;
  if (task == Task::kSettle) datastore_->saver().Settle();
  Publish({SaveState::kSaved, {}});
  return pause;
}

milliseconds Service::Save() {
  const auto start = steady_clock::now();
  datastore_->saver().Save();
  const auto end = steady_clock::now();
  watch_.Saved(end);
  const auto spent = std::chrono::duration_cast<milliseconds>(end - start);
  return std::clamp(kIdleShare * spent, kShortestInterval, kLongestInterval);
}

milliseconds Service::Repair() {
  Datastore().saver().Save();
  datastore_->saver().Settle();
  watch_.Forget();
  Publish({SaveState::kSaved, {}});
  return kShortestInterval;
}

void Service::Fail(const std::string& reason) {
  const std::string text = "commits are not saved, trying again: " + reason;
  if (failed_) {
    base::LogError(text);
  } else {
    ReportFault(text);
  }
  failed_ = true;
  Publish({SaveState::kFailed, reason});
}

void Service::Lose(const std::string& reason) {
  ReportFault(reason + "; connecting anew");
  datastore_.reset();
  watch_.Forget();
  retry_.Failed(reason);
}

void Service::Publish(const dhcp_relay::saving::SaveStatus& status) {
  try {
    status_.Publish(status);
  } catch (const std::system_error& error) {
    base::LogError(error.what());
  }
}

bool Service::Finish() {
  timer_.Disarm();
  try {
    SaveAll();
    return true;
  } catch (const std::exception& error) {
    Fail(error.what());
    return false;
  }
}

void Service::SaveAll() {
  if (datastore_) {
    try {
      datastore_->saver().Save();
      datastore_->saver().Settle();
      return;
    } catch (const DatastoreLost& error) {
      Lose(error.what());
    }
  }
  SaveOnce();
}

}  // namespace save
