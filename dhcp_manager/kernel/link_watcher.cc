#include "dhcp_manager/kernel/link_watcher.h"

#include <poll.h>
#include <sys/epoll.h>

#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/service/log.h"

namespace dhcp_manager {
namespace {

constexpr int kAnswerTime = 2000;  // milliseconds

bool IsReadable(int fd) {
  pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
  return poll(&entry, 1, kAnswerTime) == 1;
}

void ReportLoss(const std::string& reason) {
  base::LogError("lost track of the kernel's interfaces, reading all of them anew: " + reason);
}

}  // namespace

LinkWatcher::LinkWatcher(vxmw_t* mw, std::unique_ptr<LinkSocket> socket, VrfDevices vrf_devices,
                         Changed changed, OpenSocket reopen)
    : mw_(mw),
      vrf_devices_(std::move(vrf_devices)),
      changed_(std::move(changed)),
      reopen_(std::move(reopen)),
      feed_(std::make_unique<LinkFeed>(std::move(socket), vrf_devices_)),
      retry_(mw, kDelays, ReportLoss, [this] { StartAgain(); }),
      steady_(mw, [this] { retry_.Succeeded(); }) {
  if (Try([this] { ReadAtOnce(); })) Watch();
  links_.TakeChanges();
}

void LinkWatcher::ReadAtOnce() {
  feed_->Restart();
  do {
    feed_->TakePortion(links_);
  } while (!feed_->live() && IsReadable(feed_->fd()));
}

void LinkWatcher::Watch() {
  // The socket can always be written to, which wakes up the loop while nothing waits.
  const auto events = feed_->draining() ? EPOLLIN | EPOLLOUT : EPOLLIN;
  events_ = std::make_unique<vxmw::IoSource>(mw_, feed_->fd(), events,
                                             [this](std::uint32_t /*events*/) { TakePortion(); });
}

void LinkWatcher::TakePortion() {
  const bool was_live = feed_->live();
  const bool was_draining = feed_->draining();
  if (Try([this] { feed_->TakePortion(links_); })) {
    if (was_draining && !feed_->draining()) events_->SetEvents(EPOLLIN);
    if (!was_live && feed_->live()) steady_.Arm(kSteady);
  }
  const Links::Changes changes = links_.TakeChanges();
  if (!changes.empty()) changed_(changes);
}

bool LinkWatcher::Try(const std::function<void()>& step) {
  try {
    step();
    return true;
  } catch (const Overrun& overrun) {
    ++overruns_;
    Lose(overrun.what());
  } catch (const std::system_error& error) {
    events_.reset();
    feed_.reset();
    Lose(error.what());
  } catch (const std::runtime_error& error) {
    Lose(error.what());
  }
  return false;
}

void LinkWatcher::Lose(const std::string& reason) {
  // An error that waits in the socket would wake up the loop again and again.
  events_.reset();
  steady_.Disarm();
  retry_.Failed(reason);
}

void LinkWatcher::StartAgain() {
  const bool started = Try([this] {
    if (!feed_) feed_ = std::make_unique<LinkFeed>(reopen_(), vrf_devices_);
    feed_->Restart();
    feed_->TakePortion(links_);
  });
  if (started) Watch();
}

}  // namespace dhcp_manager
