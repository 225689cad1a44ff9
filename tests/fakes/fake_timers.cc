#include "tests/fakes/fake_timers.h"

#include <utility>

#include <vxmw/event.h>

namespace fakes {

Timers& Timers::Get() {
  static Timers* const timers = new Timers;
  return *timers;
}

bool Timers::Fire() {
  const auto ended = std::exchange(running, {});
  for (const auto& [timer, callback] : ended) callback();
  return !ended.empty();
}

}  // namespace fakes

namespace vxmw {

struct TimerSource::Impl {
  Callback callback;
};

TimerSource::TimerSource(vxmw_t* /*mw*/, Callback callback)
    : impl_(std::make_unique<Impl>(Impl{std::move(callback)})) {}

TimerSource::~TimerSource() {
  if (impl_) Disarm();
}

TimerSource::TimerSource(TimerSource&&) noexcept = default;

void TimerSource::Arm(std::chrono::microseconds after) {
  fakes::Timers::Get().delays.push_back(after);
  fakes::Timers::Get().running[impl_.get()] = impl_->callback;
}

void TimerSource::Disarm() { fakes::Timers::Get().running.erase(impl_.get()); }

}  // namespace vxmw
