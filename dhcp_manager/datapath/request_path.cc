#include "dhcp_manager/datapath/request_path.h"

#include <algorithm>
#include <optional>

#include "dhcp_manager/packet/dhcp_message.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

// The payload of a datagram that every Ethernet carries unfragmented (RFC 894): our option is not
// added beyond it.
constexpr std::size_t kMaxMessageSize = 1472;

}  // namespace

std::size_t RequestPath::Relay(PacketRing& ring) {
  if (table_.has_flood_guards()) now_ = clock_();
  std::size_t total = 0;
  for (int batch = 0; batch < kMaxBatches; ++batch) {
    const std::size_t count = RelayBatch(ring);
    total += count;
    if (count < kBatch) break;
  }
  return total;
}

std::size_t RequestPath::RelayBatch(PacketRing& ring) {
  std::size_t count = 0;
  for (; count < kBatch; ++count) {
    const auto packet = ring.Next();
    if (!packet) break;
    if (filters_ != nullptr) filters_->Take(packet->link);
    Take(*packet);
  }
  FinishBatch();
  // The copies sent lie in the ring's frames.
  ring.Release();
  if (filters_ != nullptr) FreeRoom(count);
  return count;
}

void RequestPath::FreeRoom(std::size_t packets) {
  filters_->Release(packets);
  if (packets < kBatch) filters_->OnEmpty();
}

void RequestPath::Take(const PacketRing::Packet& packet) {
  const Forwarding& forwarding = table_.forwarding();
  const nettypes::IPv4Addr destination = DestinationOf(packet.data);
  const RelayInterface* const interface = forwarding.FindByLink(packet.link, destination);
  if (interface == nullptr) {
    table_.unmatched().Count(control::UnmatchedOutcome::kNoInterface);
    return;
  }
  if (!forwarding.IsForUs(*interface, destination)) {
    table_.unmatched().Count(control::UnmatchedOutcome::kNotForUs);
    return;
  }
  InterfaceDatapath& datapath = table_.Of(*interface);
  ++datapath.counters->requests;
  const Outcome outcome = Forward(*interface, datapath, packet);
  if (outcome != Outcome::kRelayed) datapath.counters->Count(outcome);
}

RequestPath::Outcome RequestPath::Forward(const RelayInterface& interface,
                                          InterfaceDatapath& datapath,
                                          const PacketRing::Packet& packet) {
  const auto payload =
      packet.truncated ? std::nullopt : ParseUdp(packet.data, packet.size, packet.unverified);
  if (datapath.flood_guard != nullptr) {
    const Outcome outcome = AskGuards(interface, datapath, payload);
    if (outcome != Outcome::kRelayed) return outcome;
  }
  if (!payload) return Outcome::kMalformed;
  return Forward(interface, datapath, *payload);
}

// From the narrowest to the widest: what one client, or DHCPDISCOVERs, send beyond their limit
// takes nothing from the others of the interface.
RequestPath::Outcome RequestPath::AskGuards(const RelayInterface& interface,
                                            const InterfaceDatapath& datapath,
                                            const std::optional<UdpPayload>& payload) {
  InterfaceGuard& guard = *datapath.flood_guard;
  if (payload && message::IsMessage(payload->data, payload->size, message::kRequest)) {
    if (!IsWithinClientLimit(interface, *payload)) return Outcome::kClientFlood;
    if (guard.discovers && message::IsDiscover(payload->data, payload->size) &&
        !guard.discovers->Take(now_)) {
      return Outcome::kDiscoverFlood;
    }
  }
  return !guard.requests || guard.requests->Take(now_) ? Outcome::kRelayed : Outcome::kFlood;
}

bool RequestPath::IsWithinClientLimit(const RelayInterface& interface, const UdpPayload& payload) {
  ClientGuard* const clients = table_.client_guard();
  return clients == nullptr ||
         clients->Take(interface.link,
                       {payload.data + message::kChaddr, payload.data[message::kHlen]}, now_);
}

RequestPath::Outcome RequestPath::Forward(const RelayInterface& interface,
                                          InterfaceDatapath& datapath, const UdpPayload& payload) {
  MessageBuffer message{.data = payload.data,
                        .size = payload.size,
                        .capacity = std::max(kMaxMessageSize, payload.size)};
  const RequestVerdict verdict = RelayRequest(interface.relay, *datapath.own_addresses, message);
  if (verdict.outcome != Outcome::kRelayed) return verdict.outcome;
  if (verdict.option_left_out) ++datapath.counters->option_left_out;
  if (datapath.servers->empty()) return Outcome::kNoServer;
  if (datapath.outbox == nullptr) return Outcome::kSendFailed;
  Queue(datapath, message);
  return Outcome::kRelayed;
}

// RFC 1542, section 4.1.1: every server gets a copy.
void RequestPath::Queue(const InterfaceDatapath& datapath, const MessageBuffer& message) {
  queued_.push_back({.counters = datapath.counters, .sent = false});
  Outbox& outbox = *datapath.outbox;
  for (const ServerDatapath& server : *datapath.servers) {
    if (outbox.full()) Flush(outbox);
    if (outbox.empty()) filled_.push_back(&outbox);
    outbox.Add(message.data, message.size, server.address, copies_.size());
    copies_.push_back({.request = queued_.size() - 1, .server = server.counters});
  }
}

void RequestPath::Flush(Outbox& outbox) {
  outbox.Flush([this](std::size_t tag, bool sent) {
    const Copy& copy = copies_[tag];
    ++(sent ? copy.server->sent : copy.server->failed);
    queued_[copy.request].sent = queued_[copy.request].sent || sent;
  });
}

void RequestPath::FinishBatch() {
  for (Outbox* const outbox : filled_) Flush(*outbox);
  for (const Queued& request : queued_) {
    request.counters->Count(request.sent ? Outcome::kRelayed : Outcome::kSendFailed);
  }
  queued_.clear();
  copies_.clear();
  filled_.clear();
}

}  // namespace dhcp_manager
