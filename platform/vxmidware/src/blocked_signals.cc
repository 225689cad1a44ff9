#include <ctime>

#include "platform/vxmidware/src/middleware.h"

namespace vxmw {
namespace {

sigset_t OurSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, number);
  return set;
}

}  // namespace

BlockedSignals::BlockedSignals() {
  const sigset_t ours = OurSignals();
  pthread_sigmask(SIG_BLOCK, &ours, &before_);
}

BlockedSignals::~BlockedSignals() {
  const sigset_t ours = OurSignals();
  const timespec at_once{};
  while (sigtimedwait(&ours, nullptr, &at_once) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace vxmw
