#include <algorithm>
#include <utility>
#include <vector>

#include <confd/session.h>

#include "platform/confd/src/sessions.h"

namespace confd {
namespace {

using Sessions = std::vector<std::shared_ptr<Snapshot>>;

// Never destroyed: a process that exits in the middle of a read must not give data back to a
// datastore connection that is already gone.
Sessions& AllSessions() {
  static auto& sessions = *std::make_unique<Sessions>().release();
  return sessions;
}

bool IsSlot(int sock) { return sock >= 0 && static_cast<std::size_t>(sock) < AllSessions().size(); }

}  // namespace

int OpenSession(std::shared_ptr<Snapshot> snapshot) {
  Sessions& sessions = AllSessions();
  auto slot = std::find(sessions.begin(), sessions.end(), nullptr);
  if (slot == sessions.end()) slot = sessions.insert(slot, nullptr);
  *slot = std::move(snapshot);
  return static_cast<int>(slot - sessions.begin());
}

void CloseSession(int sock) {
  if (IsSlot(sock)) AllSessions()[static_cast<std::size_t>(sock)].reset();
}

Snapshot* FindSession(int sock) {
  return IsSlot(sock) ? AllSessions()[static_cast<std::size_t>(sock)].get() : nullptr;
}

}  // namespace confd
