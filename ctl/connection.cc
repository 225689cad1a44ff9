#include "connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "control_server.h"

namespace relayctl {
namespace {

namespace control = dhcp_manager::control;
using dhcp_relay::wire::Descriptor;
using dhcp_relay::wire::PacketReader;
using dhcp_relay::wire::WireError;

constexpr int kAnswerLimit = 10000;  // milliseconds

Descriptor Connect(const std::filesystem::path& path) {
  const sockaddr_un address = dhcp_relay::wire::SocketAddress(path);
  Descriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!fd || connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw WireError("the DHCP manager does not answer on " + path.string() + ": " +
                    std::strerror(errno));
  }
  return fd;
}

}  // namespace

Connection::Connection(const std::filesystem::path& directory)
    : fd_(Connect(directory / dhcp_manager::kControlSocketName)) {}

void Connection::Ask(control::Request::Kind kind) {
  control::Request request;
  request.set_kind(kind);
  if (dhcp_relay::wire::SendPacket(fd_.get(), request.SerializeAsString()) !=
      dhcp_relay::wire::SendResult::kSent) {
    throw WireError("the DHCP manager takes no request");
  }
}

control::Reply Connection::Receive() {
  pollfd ready{.fd = fd_.get(), .events = POLLIN, .revents = 0};
  if (poll(&ready, 1, kAnswerLimit) <= 0) throw WireError("the DHCP manager does not answer");
  if (reader_.Receive(fd_.get()) != PacketReader::Result::kPacket) {
    throw WireError("the DHCP manager closed the connection");
  }
  control::Reply reply;
  reader_.Parse(reply);
  return reply;
}

control::Status Connection::Status() {
  Ask(control::Request::STATUS);
  return Receive().status();
}

std::vector<control::Instance> Connection::Table() {
  Ask(control::Request::TABLE);
  std::vector<control::Instance> table;
  control::Reply reply;
  do {
    reply = Receive();
    for (const control::Instance& instance : reply.instances()) {
      // A large instance comes in several pieces.
      if (!table.empty() && table.back().name() == instance.name()) {
        table.back().MergeFrom(instance);
      } else {
        table.push_back(instance);
      }
    }
  } while (!reply.last());
  return table;
}

RelayState Connection::State() {
  Ask(control::Request::STATE);
  RelayState state;
  control::Reply reply;
  do {
    reply = Receive();
    state.services.insert(state.services.end(), reply.services().begin(), reply.services().end());
    state.ports.insert(state.ports.end(), reply.ports().begin(), reply.ports().end());
  } while (!reply.last());
  state.strays = reply.strays();
  return state;
}

void Connection::ClearCounters() {
  Ask(control::Request::CLEAR_COUNTERS);
  Receive();
}

}  // namespace relayctl
