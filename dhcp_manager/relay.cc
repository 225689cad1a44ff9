#include "dhcp_manager/relay.h"

#include <utility>

namespace dhcp_manager {
namespace {

using std::chrono::milliseconds;

// A commit comes as one call after the other. Packets go by what was before it until its calls have
// ceased for the first of these times, so that they never meet an instance that is half there; but
// no longer than the second.
constexpr milliseconds kQuiet{2};
constexpr milliseconds kLongest{50};

}  // namespace

Relay::Relay(vxmw_t* mw, Sockets sockets, Resync& resync, VrfDevices vrf_devices,
             std::optional<base::RateLimit> flood_guard)
    : resync_(resync),
      packets_(mw, std::move(sockets), counters_, flood_guard),
      settled_(mw, [this] { Rebuild(); }),
      links_(mw, std::move(vrf_devices), [this] { Changed(); }) {
  resync_.OnChange([this](Resync::Change change) {
    // Who is told that the table is in sync may count on it.
    if (change == Resync::Change::kDump) {
      Rebuild();
    } else {
      Changed();
    }
  });
}

Relay::~Relay() { resync_.OnChange(nullptr); }

void Relay::Changed() {
  const auto now = Clock::now();
  if (!first_change_) first_change_ = now;
  if (now - *first_change_ < kLongest) settled_.Arm(kQuiet);
}

void Relay::Rebuild() {
  first_change_.reset();
  settled_.Disarm();
  if (resync_.dumps() == 0) return;
  // The lanes of the old forwarding point to counters that go: packets_ forgets them in Use.
  counters_.Keep(resync_.table());
  packets_.Use(Forwarding(resync_.table(), links_.links()));
}

}  // namespace dhcp_manager
