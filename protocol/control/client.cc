#include "protocol/control/client.h"

#include <grp.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "protocol/control/outcome.h"
#include "protocol/control/outcome_counts.h"
#include "protocol/control/socket_name.h"

namespace dhcp_relay::control {
namespace {

using base::ConnectionError;

// Answers that a change has met before one of them is taken as it is.
constexpr int kMaxTries = 5;

// Who may open the socket.
std::string UsersOf(const std::filesystem::path& path) {
  struct stat status{};
  if (stat(path.c_str(), &status) != 0) return "those who may enter its directory";
  if ((status.st_mode & S_IWGRP) == 0) return "root and the DHCP manager's user";
  const group* const entry = getgrgid(status.st_gid);
  return "root and members of the group " +
         (entry != nullptr ? entry->gr_name : std::to_string(status.st_gid));
}

base::Descriptor Connect(const std::filesystem::path& path) {
  try {
    return base::ConnectPacketSocket(path, 0);
  } catch (const std::system_error& error) {
    if (error.code().value() == EACCES) {
      throw AccessError("you may not open " + path.string() + ": it is for " + UsersOf(path));
    }
    throw ConnectionError("the DHCP manager does not answer on " + path.string() + ": " +
                          error.code().message());
  }
}

// Adds the instances of a reply; the first may go on with the last of the one before.
template <typename Instances, typename Message>
void Append(Instances& instances, std::vector<Message>& all) {
  for (Message& instance : instances) {
    if (!all.empty() && all.back().name() == instance.name()) {
      all.back().MergeFrom(instance);
    } else {
      all.push_back(std::move(instance));
    }
  }
}

void AppendComplete(Reply& reply, std::vector<RelayInterface>& all) {
  for (RelayInterface& interface : *reply.mutable_relay_interfaces()) {
    CompleteOutcomes(RequestOutcomes(), *interface.mutable_request_outcomes());
    CompleteOutcomes(ReplyOutcomes(), *interface.mutable_reply_outcomes());
    all.push_back(std::move(interface));
  }
}

}  // namespace

Connection::Connection(const std::filesystem::path& directory,
                       std::chrono::milliseconds answer_limit)
    : answer_limit_(answer_limit), fd_(Connect(directory / kSocketName)) {}

void Connection::Ask(Request::Kind kind) {
  Request request;
  request.set_kind(kind);
  if (base::SendPacket(fd_.get(), request.SerializeAsString()) != base::SendResult::kSent) {
    throw ConnectionError("the DHCP manager takes no request");
  }
}

Reply Connection::Receive() {
  pollfd ready{.fd = fd_.get(), .events = POLLIN, .revents = 0};
  if (poll(&ready, 1, static_cast<int>(answer_limit_.count())) <= 0) {
    throw ConnectionError("the DHCP manager does not answer");
  }
  if (reader_.Receive(fd_.get()) != base::PacketReader::Result::kPacket) {
    throw ConnectionError("the DHCP manager closed the connection");
  }
  Reply reply;
  reader_.Parse(reply);
  return reply;
}

bool Connection::ReceiveAll(const std::function<void(Reply&)>& take) {
  Reply reply;
  do {
    reply = Receive();
    take(reply);
  } while (!reply.last());
  return !reply.changed();
}

control::Status Connection::Status() {
  Ask(Request::STATUS);
  return ReceiveStatus();
}

control::Status Connection::ReceiveStatus() {
  control::Status status;
  ReceiveAll([&status](Reply& reply) { status.MergeFrom(reply.status()); });
  return status;
}

std::vector<Instance> Connection::Table() {
  std::vector<Instance> table;
  for (int tries = 0; tries < kMaxTries; ++tries) {
    table.clear();
    Ask(Request::TABLE);
    const auto take = [&table](Reply& reply) { Append(*reply.mutable_instances(), table); };
    if (ReceiveAll(take)) break;
  }
  return table;
}

RelayState Connection::State() {
  RelayState state;
  for (int tries = 0; tries < kMaxTries; ++tries) {
    state = {};
    Ask(Request::STATE);
    const auto take = [&state](Reply& reply) {
      Append(*reply.mutable_relay_instances(), state.instances);
      AppendComplete(reply, state.interfaces);
      state.unmatched.MergeFrom(reply.unmatched());
      state.kernel_drops.MergeFrom(reply.kernel_drops());
    };
    if (ReceiveAll(take)) break;
  }
  CompleteOutcomes(UnmatchedOutcomes(), *state.unmatched.mutable_outcomes());
  return state;
}

void Connection::ClearCounters() {
  Ask(Request::CLEAR_COUNTERS);
  ReceiveStatus();
}

}  // namespace dhcp_relay::control
