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

// Between two looks. A commit is on the disk within a second, so the longer one leaves time for a
// save; but while a large configuration changes all the time, most of the time is others'.
constexpr milliseconds kShortestInterval{200};
constexpr milliseconds kLongestInterval{500};
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
  const auto start = steady_clock::now();
  try {
    Look();
  } catch (const DatastoreLost& error) {
    Lose(error.what());
    return;
  } catch (const std::exception& error) {
    retry_.Failed(error.what());
    return;
  }
  retry_.Succeeded();
  failed_ = false;
  Publish({SaveState::kSaved, {}});
  const auto spent = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
  timer_.Arm(std::clamp(kIdleShare * spent, kShortestInterval, kLongestInterval));
}

void Service::Look() {
  if (!datastore_) datastore_ = std::make_unique<Connected>(pending_);
  Saver& saver = datastore_->saver();
  const std::string modified = datastore_->store().LastModified();
  const bool changed = modified != seen_;
  if (!changed && saver.settled()) return;
  if (changed && !failed_) Publish({SaveState::kSaving, {}});
  const bool saved = saver.Save();
  seen_ = modified;
  // A commit that followed the last one at once is seen only by reading again; hence the second
  // save before settling. After a failure all is tried.
  if (failed_ || (!changed && !saved)) saver.Settle();
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
  seen_.clear();
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
