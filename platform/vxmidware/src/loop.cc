#include <signal.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>

#include <vxmw/event.h>

#include "platform/vxmidware/src/application.h"
#include "platform/vxmidware/src/middleware.h"
#include "platform/vxmidware/src/trace.h"

namespace vxmw {
namespace {

constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;
constexpr std::uint64_t kNoTimeout = std::numeric_limits<std::uint64_t>::max();

bool attached = false;

int OnTerminate(sd_event_source* /*source*/, const signalfd_siginfo* /*info*/, void* mw) {
  EndLoop(static_cast<vxmw_t*>(mw), 0);
  return 0;
}

int OnHangup(sd_event_source* /*source*/, const signalfd_siginfo* /*info*/, void* data) {
  ReloadTrace();
  auto* const mw = static_cast<vxmw_t*>(data);
  try {
    for (const auto& watch : mw->hangup_watches) watch();
  } catch (...) {
    KeepException(mw, std::current_exception());
  }
  return 0;
}

EventSourcePtr AddSignal(vxmw_t* mw, int number, sd_event_signal_handler_t handler) {
  sd_event_source* source = nullptr;
  Checked(sd_event_add_signal(mw->event.get(), &source, number, handler, mw), "watch a signal");
  return EventSourcePtr(source);
}

std::unique_ptr<vxmw_t> Attach() {
  auto mw = std::make_unique<vxmw_t>();
  sd_event* event = nullptr;
  Checked(sd_event_new(&event), "make the event loop");
  mw->event.reset(event);
  mw->terminate = AddSignal(mw.get(), SIGTERM, OnTerminate);
  mw->interrupt = AddSignal(mw.get(), SIGINT, OnTerminate);
  // A signal that the loop has taken is no longer pending, so nothing long may come before it.
  for (sd_event_source* stop : {mw->terminate.get(), mw->interrupt.get()}) {
    Checked(sd_event_source_set_priority(stop, SD_EVENT_PRIORITY_IMPORTANT), "watch a signal");
  }
  mw->hangup = AddSignal(mw.get(), SIGHUP, OnHangup);
  // Writing to a peer that is gone, or past the limit of a file's size, is an error of that call,
  // not the end of the process.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  return mw;
}

void NotifyReady(vxmw_t* mw) {
  if (std::exchange(mw->ready_sent, true)) return;
  sd_notify(0, "READY=1");
  sd_event_set_watchdog(mw->event.get(), 1);
}

void NotifyStopping(vxmw_t* mw) {
  if (!mw->ready_sent || std::exchange(mw->stopping_sent, true)) return;
  sd_notify(0, "STOPPING=1");
}

vxmw_t* Refuse(const char* why) {
  std::fprintf(stderr, "vxmw_init: %s\n", why);
  return nullptr;
}

// One event at a time, so that an exception is rethrown before anything else runs.
int Run(vxmw_t* mw, const bool& go_on, std::uint64_t max_wait) {
  while (go_on && !mw->ended) {
    const int result = sd_event_run(mw->event.get(), max_wait);
    if (mw->exception || result < 0) NotifyStopping(mw);
    if (mw->exception) std::rethrow_exception(std::exchange(mw->exception, nullptr));
    if (result < 0) return result;
  }
  if (mw->ended) NotifyStopping(mw);
  return mw->result;
}

}  // namespace

int Checked(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(-result, std::generic_category(), std::string("cannot ") + what);
  }
  return result;
}

void KeepException(vxmw_t* mw, std::exception_ptr exception) noexcept {
  if (!mw->exception) mw->exception = std::move(exception);
  mw->ended = true;
}

HangupWatch::HangupWatch(vxmw_t* mw, Callback callback)
    : mw_(mw),
      callback_(mw->hangup_watches.insert(mw->hangup_watches.end(), std::move(callback))) {}

HangupWatch::~HangupWatch() { mw_->hangup_watches.erase(callback_); }

void EndLoop(vxmw_t* mw, int result) {
  mw->ended = true;
  mw->result = result;
}

}  // namespace vxmw

vxmw_t* vxmw_init(const char* application) {
  if (application == nullptr || *application == '\0') return vxmw::Refuse("no application name");
  if (vxmw::attached) return vxmw::Refuse("this process is attached already");
  try {
    auto mw = vxmw::Attach();
    vxmw::SetApplication(application);
    vxmw::attached = true;
    return mw.release();
  } catch (const std::exception& error) {
    return vxmw::Refuse(error.what());
  }
}

int vxmw_loop_while_timeout(vxmw_t* mw, bool* go_on, int timeout) {
  if (mw == nullptr || go_on == nullptr) return -EINVAL;
  const std::uint64_t max_wait =
      timeout > 0 ? static_cast<std::uint64_t>(timeout) * vxmw::kMicrosecondsPerMillisecond
                  : vxmw::kNoTimeout;
  mw->ended = false;
  mw->result = 0;
  vxmw::NotifyReady(mw);
  return vxmw::Run(mw, *go_on, max_wait);
}

void vxmw_finish(vxmw_t** mw) {
  if (mw == nullptr || *mw == nullptr) return;
  vxmw::NotifyStopping(*mw);
  delete *mw;
  *mw = nullptr;
  vxmw::attached = false;
}
