// The configuration adapter: connects a process to the configuration database, takes its
// configuration handlers through the initial phases, and through every commit that touches what
// they subscribed to.
//
// Everything runs on the middleware loop's thread. An exception that leaves a handler's operation
// ends the delivery and comes out of whoever drives it: Init, or the loop.

#ifndef VXCONFD_VXCONFD_H_
#define VXCONFD_VXCONFD_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <confd_cdb.h>
#include <confd_lib.h>
#include <vxmw/vxmw.h>

// Start-up phases of the configuration database, of which an adapter takes one to begin with.
enum ELEM_CONFD_PHASE_ET {
  ELEM_CONFD_PHASE_0 = 0,
  ELEM_CONFD_PHASE_1 = 1,
  ELEM_CONFD_PHASE_2 = 2,  // the running database can be read and subscribed to
};

namespace vxconfd {
class CommitTracker;
}  // namespace vxconfd

#pragma GCC visibility push(default)

// The connection to the configuration database.
class VxConfdInterface {
 public:
  virtual ~VxConfdInterface();
  VxConfdInterface(const VxConfdInterface&) = delete;
  VxConfdInterface& operator=(const VxConfdInterface&) = delete;

  // Connects, subscribes, and runs the initial phases of every handler. When the database or its
  // models are not there yet it returns all the same, and tries again from the loop until they
  // are. `flags` must be 0.
  virtual void Init(int flags) = 0;

  // True while the interface is connected to the configuration database.
  bool connected() const { return connected_; }

 protected:
  VxConfdInterface();

  // Null while not connected.
  std::shared_ptr<vxconfd::CommitTracker> tracker_;
  bool connected_ = false;

 private:
  friend class VxConfdCdbSessionBase;
};

// A read session on a database, open from construction to destruction.
class VxConfdCdbSessionBase {
 public:
  // `start` takes the snapshot at once; a session made with false is never open. A session that
  // cannot be opened has the socket -1, on which every cdb_* call fails with CONFD_ERR_NOSESSION;
  // why is in confd_lasterr(). `interface` must outlive the session.
  VxConfdCdbSessionBase(VxConfdInterface* interface, cdb_db_type database, bool start);
  virtual ~VxConfdCdbSessionBase();
  VxConfdCdbSessionBase(const VxConfdCdbSessionBase&) = delete;
  VxConfdCdbSessionBase& operator=(const VxConfdCdbSessionBase&) = delete;

  int Socket() const { return socket_; }

 private:
  int socket_ = -1;
};

class VxConfdCdbSession : public VxConfdCdbSessionBase {
 public:
  using VxConfdCdbSessionBase::VxConfdCdbSessionBase;
  ~VxConfdCdbSession() override;
};

namespace vxconfd {

// One subscription: what the adapter watches and whom it calls for each change at or below `path`.
struct SubscriptionPoint {
  std::int32_t
      priority;  // points of a handler are served in the order of their list, all in one event
  std::int32_t
      ns_hash;       // of the namespace of `path`, an unsigned 32-bit number kept in a signed field
  const char* path;  // schema path without keys; a constant, not owned
  std::int32_t iter_flags;  // ITER_*
  // Key path and values are borrowed for the call; either value may be null.
  std::function<confd_iter_ret(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* old_value,
                               confd_value_t* new_value)>
      callback;
};

class BaseHandler {
 public:
  virtual ~BaseHandler();

  // The interface was connected or lost its connection. Nothing to do unless overridden.
  virtual void ConfdConnected(ELEM_CONFD_PHASE_ET phase);
  virtual void ConfdDisconnected();

  // Set by AppInterface::AddConfigHandler; null before.
  void set_interface(VxConfdInterface* interface) { interface_ = interface; }

 protected:
  BaseHandler() = default;

  VxConfdInterface* interface_ = nullptr;
};

class ConfigHandler : public BaseHandler {
 public:
  // The initial phases, in this order, once the interface is connected.
  virtual void LoadInitialConfig() = 0;
  virtual void ApplyInitialConfig() = 0;

  // Around the change callbacks of each commit that touches a subscribed path.
  virtual void StartCommit() = 0;
  virtual void ApplyCommitConfig() = 0;

  virtual const std::vector<SubscriptionPoint>& GetSubscriptionPoints() const;

 protected:
  std::vector<SubscriptionPoint> points_;
};

class AppInterface : public VxConfdInterface {
 public:
  // `mw` and `category` must outlive the adapter; `category` may be null.
  AppInterface(vxmw_t* mw, zlog_category_t* category, const char* application,
               ELEM_CONFD_PHASE_ET phase);
  ~AppInterface() override;

  // Not owned; must outlive the adapter. Null is ignored. Only before Init.
  void AddConfigHandler(ConfigHandler* handler);

  void Init(int flags) override;

 private:
  class [[gnu::visibility("hidden")]] Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vxconfd

#pragma GCC visibility pop

#endif  // VXCONFD_VXCONFD_H_
