// The interface's and the handlers' base classes, and read sessions.

#include <confd/session.h>
#include <vxconfd/vxconfd.h>

#include "platform/vxconfd/src/commit_tracker.h"

VxConfdInterface::VxConfdInterface() = default;
VxConfdInterface::~VxConfdInterface() = default;

VxConfdCdbSessionBase::VxConfdCdbSessionBase(VxConfdInterface* interface, cdb_db_type database,
                                             bool start) {
  if (!start) return;
  if (interface == nullptr || !interface->tracker_) {
    confd::SetLastError(CONFD_ERR_NOSESSION, "not connected to the configuration database");
    return;
  }
  try {
    socket_ = confd::OpenSession(interface->tracker_->TakeSnapshot(database));
  } catch (const vxconfd::DatastoreError& error) {
    confd::SetLastError(CONFD_ERR_NOSESSION, error.what());
  }
}

VxConfdCdbSessionBase::~VxConfdCdbSessionBase() { confd::CloseSession(socket_); }

VxConfdCdbSession::~VxConfdCdbSession() = default;

namespace vxconfd {

BaseHandler::~BaseHandler() = default;

void BaseHandler::ConfdConnected(ELEM_CONFD_PHASE_ET /*phase*/) {}
void BaseHandler::ConfdDisconnected() {}

const std::vector<SubscriptionPoint>& ConfigHandler::GetSubscriptionPoints() const {
  return points_;
}

}  // namespace vxconfd
