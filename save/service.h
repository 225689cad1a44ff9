// Saves from the middleware's loop, and tells how that goes.

#ifndef SAVE_SERVICE_H_
#define SAVE_SERVICE_H_

#include <chrono>
#include <memory>
#include <string>

#include <vxmw/event.h>

#include "base/service/retry.h"
#include "protocol/saving/save_status.h"
#include "save/change_watch.h"
#include "save/connected.h"
#include "save/pending_file.h"

namespace save {

// Nobody is asked to tell of commits, because a committer waits for those who are. The time of the
// latest change is looked at instead.
class Service {
 public:
  // `status` must outlive it.
  Service(vxmw_t* mw, dhcp_relay::saving::StatusFile& status);

  // Saves what is not saved yet. False when that fails. To be called when the loop has ended.
  bool Finish();

 private:
  void Work();
  Connected& Datastore();
  // Each returns the time until the next look, and throws what Saver throws.
  std::chrono::milliseconds Look();
  std::chrono::milliseconds Save();
  std::chrono::milliseconds Repair();  // tries everything, after a failure
  void SaveAll();
  void Lose(const std::string& reason);
  void Fail(const std::string& reason);
  void Publish(const dhcp_relay::saving::SaveStatus& status);

  dhcp_relay::saving::StatusFile& status_;
  const PendingFile pending_;
  std::unique_ptr<Connected> datastore_;
  ChangeWatch watch_;
  bool failed_ = false;  // an operator has been told so
  base::Retry retry_;
  vxmw::TimerSource timer_;
};

}  // namespace save

#endif  // SAVE_SERVICE_H_
