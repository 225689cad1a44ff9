#include "tests/fakes/fake_vxconfd.h"

#include "tests/fakes/fake_confd.h"
#include "tests/fakes/journal.h"

using fakes::Journal;
using fakes::Vxconfd;

namespace fakes {

Vxconfd& Vxconfd::Get() {
  static Vxconfd* const adapter = new Vxconfd;
  return *adapter;
}

}  // namespace fakes

VxConfdInterface::VxConfdInterface() = default;
VxConfdInterface::~VxConfdInterface() = default;

VxConfdCdbSessionBase::VxConfdCdbSessionBase(VxConfdInterface* interface, cdb_db_type database,
                                             bool start)
    : socket_(fakes::Confd::Get().OpenSession()) {
  Journal::Get().Add("session open");
  Vxconfd::Get().sessions.push_back({interface, database, start});
}

VxConfdCdbSessionBase::~VxConfdCdbSessionBase() {
  Journal::Get().Add("session close");
  fakes::Confd::Get().CloseSession(socket_);
}

VxConfdCdbSession::~VxConfdCdbSession() = default;

namespace vxconfd {

BaseHandler::~BaseHandler() = default;

void BaseHandler::ConfdConnected(ELEM_CONFD_PHASE_ET phase) {
  Vxconfd::Get().connected_phases.push_back(phase);
}

void BaseHandler::ConfdDisconnected() { ++Vxconfd::Get().disconnections; }

const std::vector<SubscriptionPoint>& ConfigHandler::GetSubscriptionPoints() const {
  return points_;
}

class AppInterface::Impl {};

AppInterface::AppInterface(vxmw_t* mw, zlog_category_t* category, const char* application,
                           ELEM_CONFD_PHASE_ET phase) {
  Vxconfd& adapter = Vxconfd::Get();
  Journal::Get().Add("AppInterface");
  adapter.mw = mw;
  adapter.category = category;
  adapter.application = application;
  adapter.phase = phase;
  if (adapter.on_construct) adapter.on_construct();
}

AppInterface::~AppInterface() {
  Journal::Get().Add("~AppInterface");
  if (Vxconfd::Get().on_destroy) Vxconfd::Get().on_destroy();
}

void AppInterface::AddConfigHandler(ConfigHandler* handler) {
  Journal::Get().Add("AppInterface::AddConfigHandler");
  Vxconfd::Get().handlers.push_back(handler);
  if (handler != nullptr) handler->set_interface(this);
}

void AppInterface::Init(int flags) {
  Journal::Get().Add("AppInterface::Init " + std::to_string(flags));
  if (Vxconfd::Get().on_init) Vxconfd::Get().on_init();
  connected_ = true;
}

}  // namespace vxconfd
