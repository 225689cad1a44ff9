// Opens scripted sockets, or fails as told.

#ifndef TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_OPENER_H_
#define TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_OPENER_H_

#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/system_error.h"
#include "dhcp_manager/datapath/sockets.h"
#include "tests/unit/dhcp_manager/datapath/ring_memory.h"
#include "tests/unit/dhcp_manager/datapath/scripted_socket.h"

namespace tests {

// A socket for the loop, which the script makes readable.
struct Ready {
  Ready() : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) { socket.descriptor = event.get(); }

  void Set() const { eventfd_write(event.get(), 1); }
  void Clear() const {
    eventfd_t value = 0;
    eventfd_read(event.get(), &value);
  }

  base::Descriptor event;
  ScriptedSocket socket;
  std::uint64_t drops = 0;  // of the kernel, not told yet
};

// Passes calls on to a socket of the script, which outlives the relay's.
class ForwardingSocket final : public dhcp_manager::BatchSocket {
 public:
  ForwardingSocket(Ready& ready, int& open) : ready_(ready), open_(open) { ++open_; }
  ~ForwardingSocket() override { --open_; }

  int fd() const override { return ready_.socket.fd(); }
  std::size_t Receive(std::span<mmsghdr> messages) override {
    ready_.Clear();
    return ready_.socket.Receive(messages);
  }
  std::size_t Send(std::span<mmsghdr> messages) override { return ready_.socket.Send(messages); }
  std::uint64_t TakeDrops() override { return std::exchange(ready_.drops, 0); }

 private:
  Ready& ready_;
  int& open_;
};

class ScriptedOpener final : public dhcp_manager::SocketOpener {
 public:
  dhcp_manager::ClientSocket OpenClientSocket() override {
    attempts.emplace_back("clients");
    if (client_errors > 0) {
      --client_errors;
      base::ThrowSystemError("cannot open a packet socket", EPERM);
    }
    return {.socket = std::make_unique<ForwardingSocket>(client, open),
            .mapping = nullptr,
            .ring = dhcp_manager::PacketRing(ring.memory())};
  }
  std::unique_ptr<dhcp_manager::BatchSocket> OpenVrfSocket(const std::string& device) override {
    attempts.push_back("VRF " + device);
    if (vrf_errors[device] > 0) {
      --vrf_errors[device];
      base::ThrowSystemError("cannot bind to the VRF device " + device, ENODEV);
    }
    return std::make_unique<ForwardingSocket>(vrfs[device], open);
  }
  dhcp_manager::FilterTable* filter_table() override { return &filter_table_; }

  void ReleasePort() override { ++releases; }

  std::vector<std::string> attempts;
  int releases = 0;                       // of the port
  int client_errors = 0;                  // attempts that fail
  std::map<std::string, int> vrf_errors;  // likewise, by device
  int open = 0;                           // sockets that are open
  Ready client;
  std::map<std::string, Ready> vrfs;
  RingMemory ring{64};
  std::unique_ptr<dhcp_manager::FilterMemory> filters =
      std::make_unique<dhcp_manager::FilterMemory>();

 private:
  dhcp_manager::FilterTable filter_table_{*filters};
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_OPENER_H_
