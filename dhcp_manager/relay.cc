#include "dhcp_manager/relay.h"

#include <utility>

#include <vxmw/vxmw.h>

#include "base/severity.h"

namespace dhcp_manager {
namespace {

using std::chrono::milliseconds;

// Commits that come close together are put into service together: the old forwarding table stays in
// use until no call has arrived for kSettleTime, but no longer than kMaxDelay after the first call.
// The table holds whole commits all the time (Resync), but for a daemon that does not mark them.
constexpr milliseconds kSettleTime{2};
constexpr milliseconds kMaxDelay{50};

}  // namespace

Relay::Relay(vxmw_t* mw, Sockets sockets, std::unique_ptr<LinkSocket> link_socket, Resync& resync,
             const VrfDevices& vrf_devices, const FloodLimits& flood_limits, const Trust& trust)
    : resync_(resync),
      trust_(trust),
      sockets_(std::move(sockets)),
      routes_(mw, OpenRouteQuery()),
      udp_sockets_(MakeUdpSocketQuery()),
      competing_sockets_(*udp_sockets_, routes_,
                         [this](const std::string& text) { ReportFault(text); }),
      packets_(mw, sockets_, counters_, routes_, flood_limits,
               {.on_opened = [this] { LookForCompetingSockets(); },
                .on_failure = [this](const std::string& reason) { ReportFault(reason); }}),
      settled_(mw, [this] { Rebuild(); }),
      links_(mw, std::move(link_socket), vrf_devices,
             [this](const Links::Changes& changes) { Follow(changes); }) {
  resync_.OnChange([this](Resync::Change change) {
    // Once the manager reports that it is in sync, the table must be in use.
    if (change == Resync::Change::kTable) {
      Rebuild();
    } else {
      ScheduleRebuild();
    }
  });
}

Relay::~Relay() { resync_.OnChange(nullptr); }

void Relay::ScheduleRebuild() {
  const auto now = Clock::now();
  if (!first_change_) first_change_ = now;
  if (now - *first_change_ < kMaxDelay) settled_.Arm(kSettleTime);
}

// VRFs come and go with sockets. That is as rare as a commit, and done like one.
void Relay::Follow(const Links::Changes& changes) {
  if (resync_.dumps() == 0) return;
  const Forwarding::Updated updated = packets_.Update(links_.links(), changes);
  if (updated.interfaces > 0) ++version_;
  if (changes.vrfs || updated.vrfs) ScheduleRebuild();
}

void Relay::CollectCounters() {
  packets_.CollectKernelCounts();
  const std::uint64_t overruns = links_.overruns();
  counters_.kernel_drops().link_events += overruns - std::exchange(link_overruns_, overruns);
}

void Relay::ClearCounters() {
  CollectCounters();
  counters_.Clear();
}

void Relay::Rebuild() {
  first_change_.reset();
  settled_.Disarm();
  if (resync_.dumps() == 0) return;
  ++version_;
  CollectCounters();
  // This may drop counters that packets_ points to: Apply makes it drop those pointers.
  counters_.Synchronise(resync_.table());
  routes_.Forget();
  const std::uint64_t sockets = packets_.sockets().version();
  packets_.Apply(Forwarding(resync_.table(), links_.links(), trust_));
  if (packets_.sockets().version() != sockets) LookForCompetingSockets();
}

void Relay::LookForCompetingSockets() {
  competing_sockets_.Look(packets_.sockets().Inodes(), links_.links(), forwarding(), Clock::now());
}

SocketFaults Relay::FindSocketFaults() {
  if (competing_sockets_.IsDue(Clock::now())) LookForCompetingSockets();
  return {.missing = packets_.sockets().Missing(), .competing = competing_sockets_.found()};
}

void Relay::ReportFault(const std::string& text) {
  faults_.ErrorOf([&text] {
    vxmw_gen_fault(base::kFaultError, "ReportFault", __FILE__, __LINE__, text.c_str());
    return text;
  });
}

}  // namespace dhcp_manager
