#include <sys/epoll.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include <vxmw/event.h>

#include "platform/vxmidware/src/middleware.h"

namespace vxmw {
namespace {

// The loop's default accuracy is a quarter of a second.
constexpr std::uint64_t kTimerAccuracy = 1;  // microseconds

// Shared with the running callback, which may destroy its own source.
template <typename Callback>
struct Target {
  vxmw_t* mw;
  Callback callback;
};

// The one place where a callback is called from the loop's C frames.
template <typename Callback, typename... Arguments>
int Call(const std::shared_ptr<Target<Callback>>& target, Arguments... arguments) {
  try {
    target->callback(arguments...);
  } catch (...) {
    KeepException(target->mw, std::current_exception());
  }
  return 0;
}

}  // namespace

struct IoSource::Impl {
  std::shared_ptr<Target<Callback>> target;
  EventSourcePtr source;

  static int OnReady(sd_event_source* /*source*/, int /*fd*/, std::uint32_t events, void* data) {
    const auto target = static_cast<Impl*>(data)->target;
    return Call(target, events);
  }
};

IoSource::IoSource(vxmw_t* mw, int fd, std::uint32_t events, Callback callback)
    : impl_(std::make_unique<Impl>()) {
  impl_->target = std::make_shared<Target<Callback>>(Target<Callback>{mw, std::move(callback)});
  sd_event_source* source = nullptr;
  Checked(sd_event_add_io(mw->event.get(), &source, fd, events, Impl::OnReady, impl_.get()),
          "watch a file descriptor");
  impl_->source.reset(source);
}

IoSource::IoSource(vxmw_t* mw, int fd, std::uint32_t events, Callback callback, Priority priority)
    : IoSource(mw, fd, events, std::move(callback)) {
  if (priority == Priority::kNormal) return;
  Checked(sd_event_source_set_priority(impl_->source.get(), SD_EVENT_PRIORITY_IDLE),
          "put a source behind the others");
}

IoSource::~IoSource() = default;
IoSource::IoSource(IoSource&&) noexcept = default;
IoSource& IoSource::operator=(IoSource&&) noexcept = default;

void IoSource::SetEvents(std::uint32_t events) {
  Checked(sd_event_source_set_io_events(impl_->source.get(), events), "watch a file descriptor");
}

struct TimerSource::Impl {
  std::shared_ptr<Target<Callback>> target;
  EventSourcePtr source;

  static int OnTime(sd_event_source* /*source*/, std::uint64_t /*now*/, void* data) {
    const auto target = static_cast<Impl*>(data)->target;
    return Call(target);
  }
};

TimerSource::TimerSource(vxmw_t* mw, Callback callback) : impl_(std::make_unique<Impl>()) {
  impl_->target = std::make_shared<Target<Callback>>(Target<Callback>{mw, std::move(callback)});
  sd_event_source* source = nullptr;
  Checked(sd_event_add_time(mw->event.get(), &source, CLOCK_MONOTONIC, UINT64_MAX, kTimerAccuracy,
                            Impl::OnTime, impl_.get()),
          "make a timer");
  impl_->source.reset(source);
  Disarm();
}

TimerSource::~TimerSource() = default;
TimerSource::TimerSource(TimerSource&&) noexcept = default;
TimerSource& TimerSource::operator=(TimerSource&&) noexcept = default;

void TimerSource::Arm(std::chrono::microseconds after) {
  const auto usec = std::max(after, std::chrono::microseconds(0)).count();
  Checked(sd_event_source_set_time_relative(impl_->source.get(), static_cast<std::uint64_t>(usec)),
          "set a timer");
  Checked(sd_event_source_set_enabled(impl_->source.get(), SD_EVENT_ONESHOT), "start a timer");
}

void TimerSource::Disarm() {
  Checked(sd_event_source_set_enabled(impl_->source.get(), SD_EVENT_OFF), "stop a timer");
}

}  // namespace vxmw
