// A connection to the DHCP manager, for those who ask it.

#ifndef PROTOCOL_CONTROL_CLIENT_H_
#define PROTOCOL_CONTROL_CLIENT_H_

#include <chrono>
#include <filesystem>
#include <functional>
#include <vector>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "protocol/control/control.pb.h"

namespace dhcp_relay::control {

// What the relay is doing. Every list of outcomes is complete, zeros included, in the order of
// outcome.h; outcomes that only the manager knows come last.
struct RelayState {
  std::vector<RelayInstance> instances;    // by name
  std::vector<RelayInterface> interfaces;  // by instance, then by name
  Unmatched unmatched;
  KernelDrops kernel_drops;
};

// The caller may not open the manager's control socket; says who may.
class AccessError : public base::ConnectionError {
 public:
  using base::ConnectionError::ConnectionError;
};

// Each request waits for its answer. Throws base::ConnectionError when the manager does not answer,
// or sends no packet within the limit.
class Connection {
 public:
  static constexpr std::chrono::milliseconds kAnswerLimit{10000};

  // Connects to the control socket in `directory`. Throws AccessError, too.
  explicit Connection(const std::filesystem::path& directory,
                      std::chrono::milliseconds answer_limit = kAnswerLimit);

  control::Status Status();

  // Every relay instance, by name. An answer that a change has met is asked for again, a few times.
  std::vector<Instance> Table();
  RelayState State();

  void ClearCounters();

 private:
  void Ask(Request::Kind kind);
  Reply Receive();
  control::Status ReceiveStatus();
  // Whether the answer is of one moment.
  bool ReceiveAll(const std::function<void(Reply&)>& take);

  const std::chrono::milliseconds answer_limit_;
  base::Descriptor fd_;
  base::PacketReader reader_;
};

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_CLIENT_H_
