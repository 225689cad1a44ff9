// Serves the state of the relay as operational data of the datastore (vx-dhcp-relay-state).
//
// Every reading asks the DHCP manager. This is a process of its own, because the manager has no
// right to the datastore, and because no reader may hold up its packets.

#ifndef STATE_PUBLISHER_H_
#define STATE_PUBLISHER_H_

#include <sysrepo.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include <vxmw/event.h>

#include "base/service/log.h"
#include "base/service/retry.h"
#include "datastore/connection.h"
#include "datastore/subscription.h"

namespace state {

class Publisher {
 public:
  // Connects when the datastore and the module are there, and tries again until then; also when the
  // datastore is lost. The manager's sockets are in `directory`.
  Publisher(vxmw_t* mw, std::filesystem::path directory);
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

 private:
  struct Connected {
    datastore::Connection connection;
    datastore::Subscription subscription{connection, SR_DS_OPERATIONAL};
    std::unique_ptr<vxmw::IoSource> events;
  };

  static int OnRead(sr_session_ctx_t* session, std::uint32_t id, const char* module,
                    const char* path, const char* request_path, std::uint32_t request,
                    lyd_node** parent, void* self) noexcept;

  void Connect();
  void Subscribe();
  void ProcessEvents();
  void Check();  // from time to time: nobody tells of a loss
  bool LeaveIfLost();
  void Leave(const std::string& reason);

  vxmw_t* const mw_;
  const std::filesystem::path directory_;
  base::Retry retry_;
  base::LimitedLog refusals_;
  vxmw::TimerSource check_;
  std::unique_ptr<Connected> datastore_;
};

}  // namespace state

#endif  // STATE_PUBLISHER_H_
