// Servers of the manager on a real loop, in a directory of their own, and peers to script.

#ifndef TESTS_UNIT_DHCP_MANAGER_CONTROL_SERVER_FIXTURE_H_
#define TESTS_UNIT_DHCP_MANAGER_CONTROL_SERVER_FIXTURE_H_

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include <vxmw/vxmw.h>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "dhcp_manager/control/socket_file.h"
#include "dhcp_manager/table/resync.h"
#include "tests/support/loop.h"

namespace tests {

// A peer of one of the manager's sockets. Throws std::system_error when nobody listens.
class Peer {
 public:
  explicit Peer(const std::filesystem::path& path)
      : fd_(base::ConnectPacketSocket(path, SOCK_NONBLOCK)) {}

  template <typename Message>
  void Send(const Message& message) {
    SendText(message.SerializeAsString());
  }
  void SendText(const std::string& text) { base::SendPacket(fd_.get(), text); }

  // Takes one packet if there is one.
  template <typename Message>
  bool Receive(Message& message) {
    const auto result = reader_.Receive(fd_.get());
    if (result == base::PacketReader::Result::kClosed) closed_ = true;
    if (result != base::PacketReader::Result::kPacket) return false;
    reader_.Parse(message);
    return true;
  }

  // Whether the manager has closed the connection, though what it sent before may not be read yet.
  bool HasHungUp() const {
    pollfd state{.fd = fd_.get(), .events = 0, .revents = 0};
    return poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
  }

  // Whether the manager has closed the connection; takes what it sent before.
  template <typename Message>
  bool IsClosed() {
    Message message;
    while (Receive(message)) {
    }
    return closed_;
  }

 private:
  base::Descriptor fd_;
  base::PacketReader reader_;
  bool closed_ = false;
};

class ServerTest : public ::testing::Test {
 protected:
  ServerTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
  }
  // The servers of a derived class are gone by now.
  ~ServerTest() override {
    vxmw_finish(&mw_);
    std::filesystem::remove_all(directory_);
  }

  bool RunUntil(const std::function<bool()>& condition) { return tests::RunUntil(mw_, condition); }

  // A socket of the manager in the directory.
  dhcp_manager::SocketFile Socket(const char* name) const { return {directory_ / name, {}}; }

  std::filesystem::path directory_;
  vxmw_t* mw_ = vxmw_init("server_test");
  dhcp_manager::Resync resync_;
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_CONTROL_SERVER_FIXTURE_H_
