// The client's connection to the DHCP manager: connecting, dumps, and handing over calls.

#ifndef PLATFORM_DHCP_USER_SRC_CLIENT_H_
#define PLATFORM_DHCP_USER_SRC_CLIENT_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <dhcp_user/dhcp_user.h>
#include <vxmw/event.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "base/service/retry.h"
#include "platform/dhcp_user/src/sender.h"
#include "protocol/wire/wire.h"

namespace dhcp_relay {

// Bytes of calls that may wait for a slow manager. A dump of 4,094 instances takes a few percent of
// it.
inline constexpr std::size_t kQueueLimit = 64 * 1024 * 1024;

class Client {
 public:
  // Connects to relay.sock in `directory`, from the loop; never calls back from here.
  Client(vxmw_t* mw, DhcpUser::CallbackIf* callbacks, std::filesystem::path directory,
         std::size_t queue_limit = kQueueLimit);

  // Drops the call while there is no connection, and, with a log line, a call that the protocol
  // cannot carry.
  void Send(const wire::Call& call);

  bool connected() const { return static_cast<bool>(socket_); }

 private:
  void Connect();
  base::Descriptor OpenSocket() const;
  void Disconnect(const std::string& reason);

  void OnEvents(std::uint32_t events);
  void ReceiveAll();
  void Handle(const wire::ManagerMessage& message);
  void BeginDump(std::uint32_t id);
  void CompleteDump(std::uint32_t id);
  void CancelDump();
  void OnConfigReady(bool ready);
  void OnDelivering(bool delivering);

  // False when the connection had to be closed.
  bool Check(Sender::Result result);
  void WatchForRoom();

  vxmw_t* const mw_;
  DhcpUser::CallbackIf* const callbacks_;
  const std::filesystem::path directory_;
  base::Retry retry_;
  vxmw::ConfigReadyWatch config_ready_;
  vxmw::DeliveryWatch delivery_;
  base::Descriptor socket_;
  std::unique_ptr<vxmw::IoSource> events_;
  bool watching_for_room_ = false;
  bool answered_ = false;  // the manager has asked for a dump on this connection
  base::PacketReader reader_;
  Sender sender_;
  std::optional<std::uint32_t> waiting_dump_;  // waits for the initial phases
  bool dumped_ = false;  // the manager's request of this connection is answered
};

}  // namespace dhcp_relay

#endif  // PLATFORM_DHCP_USER_SRC_CLIENT_H_
