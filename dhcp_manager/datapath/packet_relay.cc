#include "dhcp_manager/datapath/packet_relay.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <sys/epoll.h>

#include <algorithm>
#include <system_error>
#include <tuple>

#include "base/descriptor.h"
#include "base/service/log.h"
#include "dhcp_manager/datapath/headers.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

constexpr std::chrono::milliseconds kRetry{1000};

// Batches taken from each socket in one turn of the loop, so that other work gets its turn.
constexpr int kRounds = 8;

// What fits into a datagram that every Ethernet carries unfragmented (RFC 894): our option is not
// added beyond it.
constexpr std::size_t kMaxMessageSize = 1472;

sockaddr_in ServerAddress(nettypes::IPv4Addr server) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kServerPort);
  address.sin_addr = server.to_in_addr();
  return address;
}

sockaddr_ll ClientAddress(int link, const base::MacAddress& mac) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  address.sll_ifindex = link;
  address.sll_halen = static_cast<unsigned char>(mac.size());
  std::copy(mac.begin(), mac.end(), address.sll_addr);
  return address;
}

// What became of a request that is not relayed; nothing for one that is.
std::optional<control::RequestOutcome> FateOf(RequestResult result) {
  switch (result) {
    case RequestResult::kRelay:
    case RequestResult::kRelayNoRoom:
      return std::nullopt;
    case RequestResult::kMalformed:
      return control::RequestOutcome::kMalformed;
    case RequestResult::kHops:
      return control::RequestOutcome::kTooManyHops;
    case RequestResult::kOwnGiaddr:
      return control::RequestOutcome::kOwnGiaddr;
    case RequestResult::kUntrusted:
      return control::RequestOutcome::kUntrustedOption;
    case RequestResult::kPolicyDrop:
      return control::RequestOutcome::kPolicyDrop;
  }
  return control::RequestOutcome::kMalformed;
}

std::optional<control::ReplyOutcome> FateOf(ReplyResult result) {
  switch (result) {
    case ReplyResult::kRelay:
      return std::nullopt;
    case ReplyResult::kMalformed:
      return control::ReplyOutcome::kMalformed;
    case ReplyResult::kNoInformation:
      return control::ReplyOutcome::kNoOption;
    case ReplyResult::kForeignInformation:
      return control::ReplyOutcome::kForeignOption;
  }
  return control::ReplyOutcome::kMalformed;
}

}  // namespace

PacketRelay::PacketRelay(vxmw_t* mw, Sockets sockets, Counters& counters,
                         std::optional<base::RateLimit> flood_guard)
    : mw_(mw),
      sockets_(std::move(sockets)),
      counters_(counters),
      flood_limit_(flood_guard),
      retry_(mw, [this] { OpenSockets(); }),
      interval_(mw, [this] { OnInterval(); }) {}

void PacketRelay::Use(Forwarding forwarding) {
  forwarding_ = std::move(forwarding);
  CloseDomains();
  OpenSockets();
}

void PacketRelay::OpenSockets() {
  std::string reason;
  try {
    OpenClients();
    for (const auto& [vrf, name] : forwarding_.vrfs()) OpenDomain(vrf, name);
  } catch (const std::system_error& error) {
    reason = error.what();
    retry_.Arm(kRetry);
  }
  if (!reason.empty() && reason != logged_reason_) base::LogError(reason + "; trying again");
  logged_reason_ = reason;
  WatchSockets(!polling_);
  MakeLanes();
}

void PacketRelay::OpenClients() {
  if (client_socket_ || forwarding_.vrfs().empty()) return;
  base::Descriptor socket = sockets_.OpenClientSocket();
  requests_.emplace(socket.get());
  Sockets::Listen(socket);
  client_outbox_ = std::make_unique<Outbox>(socket.get());
  client_events_ = std::make_unique<vxmw::IoSource>(mw_, socket.get(), EPOLLIN,
                                                    [this](std::uint32_t /*events*/) {
                                                      RelayRequests();
                                                      AfterWake();
                                                    });
  client_socket_ = std::move(socket);
}

void PacketRelay::OpenDomain(VrfIfindex vrf, const std::string& name) {
  if (domains_.contains(vrf)) return;
  base::Descriptor socket = sockets_.OpenServerSocket(name);
  Domain& domain = domains_[vrf];
  domain.vrf = vrf;
  domain.socket = std::move(socket);
  domain.outbox = std::make_unique<Outbox>(domain.socket.get());
  domain.events = std::make_unique<vxmw::IoSource>(mw_, domain.socket.get(), EPOLLIN,
                                                   [this, &domain](std::uint32_t /*events*/) {
                                                     RelayReplies(domain);
                                                     AfterWake();
                                                   });
}

// An interface that comes and goes does not close its domain's socket; only the removal of the last
// instance, or of the VRF device, does.
void PacketRelay::CloseDomains() {
  std::erase_if(domains_, [this](const auto& entry) {
    return std::ranges::none_of(forwarding_.services(), [&entry](const Service& service) {
      return service.vrf == entry.first;
    });
  });
}

void PacketRelay::MakeLanes() {
  servers_.clear();
  for (const Service& service : forwarding_.services()) {
    auto& servers = servers_[&service];
    for (const auto& server : service.servers) {
      servers.push_back({.address = ServerAddress(server),
                         .counters = &counters_.Server(service.instance, server)});
    }
  }
  lanes_.clear();
  for (const RelayInterface& port : forwarding_.interfaces()) {
    const auto domain = domains_.find(port.service->vrf);
    lanes_.push_back({.counters = &counters_.Interface(port.service->instance, port.name),
                      .flood_guard = FloodGuardOf(port),
                      .domain = domain == domains_.end() ? nullptr : &domain->second,
                      .servers = &servers_.at(port.service)});
  }
  std::erase_if(flood_guards_, [this](const auto& entry) {
    const auto instance = counters_.instances().find(entry.first.first);
    return instance == counters_.instances().end() ||
           !instance->second.interfaces.contains(entry.first.second);
  });
}

base::TokenBucket* PacketRelay::FloodGuardOf(const RelayInterface& port) {
  if (!flood_limit_) return nullptr;
  const auto [guard, added] = flood_guards_.try_emplace(
      {port.service->instance, port.name}, *flood_limit_, base::TokenBucket::Clock::now());
  return &guard->second;
}

PacketRelay::Lane& PacketRelay::LaneOf(const RelayInterface& port) {
  return lanes_[static_cast<std::size_t>(&port - forwarding_.interfaces().data())];
}

void PacketRelay::AfterWake() {
  if (polling_ || !adaptive_polling_.IsFast(AdaptivePolling::Clock::now())) return;
  polling_ = true;
  WatchSockets(false);
  interval_.Arm(AdaptivePolling::kInterval);
}

void PacketRelay::OnInterval() {
  std::size_t packets = client_socket_ ? RelayRequests() : 0;
  for (auto& [vrf, domain] : domains_) packets += RelayReplies(domain);
  if (adaptive_polling_.GoesOn(packets)) {
    interval_.Arm(AdaptivePolling::kInterval);
  } else {
    polling_ = false;
    WatchSockets(true);
  }
}

void PacketRelay::WatchSockets(bool watch) {
  const std::uint32_t events = watch ? std::uint32_t{EPOLLIN} : 0;
  if (client_events_) client_events_->SetEvents(events);
  for (auto& [vrf, domain] : domains_) domain.events->SetEvents(events);
}

std::size_t PacketRelay::RelayRequests() {
  if (flood_limit_) now_ = base::TokenBucket::Clock::now();
  std::size_t total = 0;
  for (int round = 0; round < kRounds; ++round) {
    std::size_t count = 0;
    for (; count < kBatch; ++count) {
      const auto packet = requests_->Next();
      if (!packet) break;
      TakeRequest(*packet);
    }
    FinishRequests();
    requests_->Release();
    total += count;
    if (count < kBatch) break;
  }
  return total;
}

std::size_t PacketRelay::RelayReplies(Domain& domain) {
  std::size_t total = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::size_t count = inbox_.Receive(domain.socket.get());
    for (std::size_t i = 0; i < count; ++i) TakeReply(domain, inbox_.Get(i));
    FlushToClients();
    total += count;
    if (count < kBatch) break;
  }
  return total;
}

void PacketRelay::TakeRequest(const PacketRing::Packet& packet) {
  const nettypes::IPv4Addr destination = DestinationOf(packet.data);
  const RelayInterface* const port = forwarding_.FindByLink(packet.link, destination);
  if (port == nullptr) {
    counters_.unmatched().Count(control::UnmatchedOutcome::kNoInterface);
    return;
  }
  if (!forwarding_.IsForUs(*port, destination)) {
    counters_.unmatched().Count(control::UnmatchedOutcome::kNotForUs);
    return;
  }
  Lane& lane = LaneOf(*port);
  ++lane.counters->requests;
  if (const auto outcome = Relay(*port, lane, packet)) lane.counters->Count(*outcome);
}

std::optional<control::RequestOutcome> PacketRelay::Relay(const RelayInterface& port, Lane& lane,
                                                          const PacketRing::Packet& packet) {
  if (lane.flood_guard != nullptr && !lane.flood_guard->Take(now_))
    return control::RequestOutcome::kFlood;
  const auto payload = ParseUdp(packet.data, packet.size, packet.unverified);
  if (packet.truncated || !payload) return control::RequestOutcome::kMalformed;
  MessageBuffer message{.data = payload->data,
                        .size = payload->size,
                        .capacity = std::max(kMaxMessageSize, payload->size)};
  const RequestResult result =
      RelayRequest(port.relay, forwarding_.OwnAddresses(port.service->vrf), message);
  if (const auto outcome = FateOf(result)) return outcome;
  if (result == RequestResult::kRelayNoRoom) ++lane.counters->option_left_out;
  if (lane.servers->empty()) return control::RequestOutcome::kNoServer;
  if (lane.domain == nullptr) return control::RequestOutcome::kSendFailed;
  pending_.push_back({.counters = lane.counters, .sent = false});
  Outbox& outbox = *lane.domain->outbox;
  for (const Server& server : *lane.servers) {
    if (outbox.full()) Flush(*lane.domain);
    outbox.Add(message.data, message.size, server.address, copies_.size());
    copies_.push_back({.request = pending_.size() - 1, .server = server.counters});
  }
  return std::nullopt;
}

void PacketRelay::Flush(Domain& domain) {
  domain.outbox->Flush([this](std::size_t tag, bool sent) {
    const Copy& copy = copies_[tag];
    ++(sent ? copy.server->sent : copy.server->failed);
    pending_[copy.request].sent = pending_[copy.request].sent || sent;
  });
}

void PacketRelay::FinishRequests() {
  for (auto& [vrf, domain] : domains_) {
    if (!domain.outbox->empty()) Flush(domain);
  }
  for (const Pending& request : pending_) {
    request.counters->Count(request.sent ? control::RequestOutcome::kRelayed
                                         : control::RequestOutcome::kSendFailed);
  }
  pending_.clear();
  copies_.clear();
}

void PacketRelay::TakeReply(const Domain& domain, const Inbox::Message& packet) {
  const auto giaddr = GiaddrOf(packet.data, packet.size);
  if (!giaddr) {
    counters_.unmatched().Count(control::UnmatchedOutcome::kMalformed);
    return;
  }
  const RelayInterface* const port = forwarding_.FindByAddress(domain.vrf, *giaddr);
  if (port == nullptr) {
    counters_.unmatched().Count(control::UnmatchedOutcome::kUnknownGiaddr);
    return;
  }
  Lane& lane = LaneOf(*port);
  ++lane.counters->replies;
  const auto server = std::ranges::find_if(*lane.servers, [&](const Server& candidate) {
    return candidate.address.sin_addr.s_addr == packet.from->sin_addr.s_addr;
  });
  if (server != lane.servers->end()) ++server->counters->replies;
  const MessageBuffer message{
      .data = packet.data, .size = packet.size, .capacity = packet.capacity};
  const auto outcome =
      packet.truncated ? control::ReplyOutcome::kMalformed : Relay(*port, lane, message);
  if (outcome) lane.counters->Count(*outcome);
}

std::optional<control::ReplyOutcome> PacketRelay::Relay(const RelayInterface& port, Lane& lane,
                                                        MessageBuffer message) {
  if (const auto outcome = FateOf(RelayReply(port.relay, message))) return outcome;
  const ReplyTarget target = TargetOf(message);
  WriteHeaders(port.relay.giaddr, target.address, message.data, message.size);
  if (client_outbox_->full()) FlushToClients();
  client_outbox_->Add(message.data - kHeadersSize, message.size + kHeadersSize,
                      ClientAddress(port.link, target.mac), replies_.size());
  replies_.push_back(lane.counters);
  return std::nullopt;
}

void PacketRelay::FlushToClients() {
  if (client_outbox_) {
    client_outbox_->Flush([this](std::size_t tag, bool sent) {
      replies_[tag]->Count(sent ? control::ReplyOutcome::kRelayed
                                : control::ReplyOutcome::kSendFailed);
    });
  }
  replies_.clear();
}

}  // namespace dhcp_manager
