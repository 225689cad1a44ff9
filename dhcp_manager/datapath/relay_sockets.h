// The relay's open sockets: one towards clients, one towards the servers of each VRF. A socket that
// cannot be opened is tried again until it can.

#ifndef DHCP_MANAGER_DATAPATH_RELAY_SOCKETS_H_
#define DHCP_MANAGER_DATAPATH_RELAY_SOCKETS_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vxmw/event.h>

#include "base/service/log.h"
#include "base/service/retry.h"
#include "dhcp_manager/datapath/batch.h"
#include "dhcp_manager/datapath/batch_socket.h"
#include "dhcp_manager/datapath/competing_sockets.h"
#include "dhcp_manager/datapath/datapath_table.h"
#include "dhcp_manager/datapath/ready_set.h"
#include "dhcp_manager/datapath/sockets.h"
#include "dhcp_manager/table/forwarding.h"
#include "dhcp_manager/table/socket_faults.h"

namespace dhcp_manager {

// Towards the servers of a VRF.
struct VrfSocket {
  VrfSocket(VrfIfindex vrf_ifindex, std::unique_ptr<BatchSocket> opened)
      : vrf(vrf_ifindex), socket(std::move(opened)), outbox(*socket) {}

  VrfIfindex vrf;
  std::unique_ptr<BatchSocket> socket;
  Outbox outbox;
};

struct SocketDelays {
  std::chrono::milliseconds retry{1000};      // between two attempts
  std::chrono::milliseconds release{60'000};  // of the port, once no VRF needs a socket
};

class RelaySockets {
 public:
  struct Handlers {
    std::function<void()> on_requests;           // the client socket is readable
    std::function<void(VrfSocket&)> on_replies;  // that VRF's socket is readable
    std::function<void()> on_opened;             // a retry has opened a socket
    // A socket cannot be opened; called again when the reason has changed.
    std::function<void(const std::string& reason)> on_failure;
  };
  // `opener` must outlive the sockets.
  RelaySockets(vxmw_t* mw, SocketOpener& opener, Handlers handlers, SocketDelays delays = {});
  RelaySockets(const RelaySockets&) = delete;
  RelaySockets& operator=(const RelaySockets&) = delete;

  // Opens the sockets that `forwarding` needs, and closes those that no instance needs any more.
  // The others stay open, so that nothing that waits in them is lost. An interface that comes and
  // goes does not close its VRF's socket: only the removal of the VRF's last instance, or of its
  // device, does.
  void Apply(const Forwarding& forwarding);

  // Whether the loop wakes up for packets.
  void SetWakeUp(bool wake_up);

  // Null while it is not open. No VRF's socket is opened before it.
  ClientSocket* client() { return client_ ? &client_->socket : nullptr; }
  // REQUIRES: client().
  Outbox& client_outbox() { return client_->outbox; }

  // Why `vrf` has no socket; empty while it has one, or needs none.
  const std::string& FailureOf(VrfIfindex vrf) const;
  // The VRFs that need a socket and have none.
  std::vector<MissingSocket> Missing() const;
  // The inodes of the VRFs' sockets.
  VrfInodes Inodes() const;
  // Changes when a socket is opened, and with the reason why one is not.
  std::uint64_t version() const { return version_; }

  // The outboxes of the VRFs' sockets that are open.
  Outboxes VrfOutboxes();

  template <typename Visit>
  void ForEachVrf(Visit visit) {
    for (auto& [vrf, entry] : vrfs_) {
      if (entry.open) visit(entry.open->socket);
    }
  }

  // Calls `visit` with each VRF's socket that has packets, and with null for the client socket.
  template <typename Visit>
  void ForEachReady(Visit visit) {
    ready_.ForEachReady([this, &visit](ReadySet::Key key) {
      visit(key == kClientKey ? nullptr : &vrfs_.at(static_cast<VrfIfindex>(key)).open->socket);
    });
  }

 private:
  // In the ready set a VRF's socket has the VRF's index, of 32 bits.
  static constexpr ReadySet::Key kClientKey = ReadySet::Key{1} << 32U;

  struct OpenClient {
    explicit OpenClient(ClientSocket opened) : socket(std::move(opened)), outbox(*socket.socket) {}

    ClientSocket socket;
    Outbox outbox;
    std::unique_ptr<vxmw::IoSource> events;
    std::unique_ptr<ReadySet::Member> ready;
  };
  struct OpenVrf {
    OpenVrf(VrfIfindex vrf, std::unique_ptr<BatchSocket> opened) : socket(vrf, std::move(opened)) {}

    VrfSocket socket;
    std::uint32_t inode = 0;
    std::unique_ptr<vxmw::IoSource> events;
    std::unique_ptr<ReadySet::Member> ready;
  };
  // A VRF whose socket is needed.
  struct Vrf {
    std::string device;
    std::unique_ptr<base::Retry> retry;
    std::string failure;  // of the latest attempt
    std::unique_ptr<OpenVrf> open;
  };

  void CloseUnused(const Forwarding& forwarding);
  // These return whether they have opened a socket.
  bool OpenAll();
  bool TryClient();
  bool TryVrf(VrfIfindex vrf);
  // These throw std::system_error.
  std::unique_ptr<OpenClient> MakeClient();
  std::unique_ptr<OpenVrf> MakeVrf(VrfIfindex vrf, const std::string& device);
  std::unique_ptr<base::Retry> MakeRetry(std::function<bool()> attempt);
  // These tell of an attempt at `socket`, whose latest failure is `failure`.
  void Succeeded(base::Retry& retry, std::string& failure, const std::string& socket);
  void Failed(base::Retry& retry, std::string& failure, const std::string& socket,
              const std::string& reason);
  std::uint32_t events() const;

  vxmw_t* const mw_;
  SocketOpener& opener_;
  const Handlers handlers_;
  const SocketDelays delays_;
  std::uint64_t version_ = 0;
  bool wake_up_ = true;
  ReadySet ready_;
  std::unique_ptr<OpenClient> client_;
  std::unique_ptr<base::Retry> client_retry_;
  std::string client_failure_;
  base::LimitedLog recoveries_;
  vxmw::TimerSource release_;
  std::map<VrfIfindex, Vrf> vrfs_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_RELAY_SOCKETS_H_
