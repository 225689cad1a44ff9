// What a vxmw_t is.

#ifndef PLATFORM_VXMIDWARE_SRC_MIDDLEWARE_H_
#define PLATFORM_VXMIDWARE_SRC_MIDDLEWARE_H_

#include <signal.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include <vxmw/vxmw.h>

#include "platform/vxmidware/src/watched_flag.h"

namespace vxmw {

struct EventDeleter {
  void operator()(sd_event* event) const { sd_event_unref(event); }
};
struct EventSourceDeleter {
  void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};
using EventPtr = std::unique_ptr<sd_event, EventDeleter>;
using EventSourcePtr = std::unique_ptr<sd_event_source, EventSourceDeleter>;

// Blocks SIGTERM, SIGINT and SIGHUP while it lives, so that one that arrives before the loop runs
// is not lost. Those still pending at the end are dropped: the process is ending already, and their
// default effect would change its exit status.
class BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals();
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_{};
};

// Throws std::system_error for a negative result of the event loop's library.
int Checked(int result, const char* what);

// Ends the loop, which then rethrows `exception`; the first one wins.
void KeepException(vxmw_t* mw, std::exception_ptr exception) noexcept;

}  // namespace vxmw

struct vxmw_handle {
  vxmw::BlockedSignals blocked;
  vxmw::EventPtr event;
  vxmw::EventSourcePtr terminate;
  vxmw::EventSourcePtr interrupt;
  vxmw::EventSourcePtr hangup;
  bool ended = false;
  int result = 0;
  std::exception_ptr exception;
  bool ready_sent = false;
  bool stopping_sent = false;
  std::chrono::steady_clock::time_point next_keep_alive;
  std::chrono::steady_clock::time_point next_feeding;
  bool stop_pending = false;  // as KeepAlive saw it last
  vxmw::WatchedFlag config_ready;
  vxmw::WatchedFlag delivering;
  std::list<std::function<void()>> hangup_watches;
};

#endif  // PLATFORM_VXMIDWARE_SRC_MIDDLEWARE_H_
