#include "protocol/control/client.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "protocol/control/socket_name.h"

namespace dhcp_relay::control {
namespace {

using base::ConnectionError;
using base::Descriptor;
using base::PacketReader;

constexpr int kAnswerLimit = 10000;  // milliseconds

Descriptor Connect(const std::filesystem::path& path) {
  const sockaddr_un address = base::SocketAddress(path);
  Descriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!fd || connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw ConnectionError("the DHCP manager does not answer on " + path.string() + ": " +
                          std::strerror(errno));
  }
  return fd;
}

}  // namespace

Connection::Connection(const std::filesystem::path& directory)
    : fd_(Connect(directory / kSocketName)) {}

void Connection::Ask(Request::Kind kind) {
  Request request;
  request.set_kind(kind);
  if (base::SendPacket(fd_.get(), request.SerializeAsString()) != base::SendResult::kSent) {
    throw ConnectionError("the DHCP manager takes no request");
  }
}

Reply Connection::Receive() {
  pollfd ready{.fd = fd_.get(), .events = POLLIN, .revents = 0};
  if (poll(&ready, 1, kAnswerLimit) <= 0) throw ConnectionError("the DHCP manager does not answer");
  if (reader_.Receive(fd_.get()) != PacketReader::Result::kPacket) {
    throw ConnectionError("the DHCP manager closed the connection");
  }
  Reply reply;
  reader_.Parse(reply);
  return reply;
}

control::Status Connection::Status() {
  Ask(Request::STATUS);
  return Receive().status();
}

std::vector<Instance> Connection::Table() {
  Ask(Request::TABLE);
  std::vector<Instance> table;
  Reply reply;
  do {
    reply = Receive();
    for (const Instance& instance : reply.instances()) {
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
  Ask(Request::STATE);
  RelayState state;
  Reply reply;
  do {
    reply = Receive();
    state.services.insert(state.services.end(), reply.services().begin(), reply.services().end());
    state.ports.insert(state.ports.end(), reply.ports().begin(), reply.ports().end());
  } while (!reply.last());
  state.unmatched = reply.strays();
  return state;
}

void Connection::ClearCounters() {
  Ask(Request::CLEAR_COUNTERS);
  Receive();
}

}  // namespace dhcp_relay::control
