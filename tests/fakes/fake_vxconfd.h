// Double of the configuration adapter. A test drives handlers itself.

#ifndef TESTS_FAKES_FAKE_VXCONFD_H_
#define TESTS_FAKES_FAKE_VXCONFD_H_

#include <functional>
#include <string>
#include <vector>

#include <vxconfd/vxconfd.h>

namespace fakes {

// A connection whose state the test decides.
class Interface : public VxConfdInterface {
 public:
  Interface() = default;
  void Init(int /*flags*/) override {}
  void SetConnected(bool connected) { connected_ = connected; }
};

struct SessionArguments {
  VxConfdInterface* interface = nullptr;
  cdb_db_type database = CDB_STARTUP;
  bool start = false;
};

class Vxconfd {
 public:
  static Vxconfd& Get();
  void Reset() { *this = Vxconfd(); }

  // Hooks run inside their call and may throw.
  std::function<void()> on_construct;
  std::function<void()> on_init;
  std::function<void()> on_destroy;

  // The arguments of the latest AppInterface.
  vxmw_t* mw = nullptr;
  zlog_category_t* category = nullptr;
  std::string application;
  ELEM_CONFD_PHASE_ET phase = ELEM_CONFD_PHASE_0;

  std::vector<vxconfd::ConfigHandler*> handlers;
  std::vector<SessionArguments> sessions;
  std::vector<ELEM_CONFD_PHASE_ET> connected_phases;  // BaseHandler::ConfdConnected
  int disconnections = 0;                             // BaseHandler::ConfdDisconnected
};

}  // namespace fakes

#endif  // TESTS_FAKES_FAKE_VXCONFD_H_
