#include "dhcp_manager/datapath/reply_path.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include <algorithm>

#include "dhcp_manager/datapath/headers.h"
#include "dhcp_manager/packet/relay_packet.h"

namespace dhcp_manager {
namespace {

// So the outbox is never full within a batch.
static_assert(kBatch <= Outbox::kCapacity);
static_assert(kHeadersSize <= Inbox::kHeadroom);

constexpr int kUnknownLink = 0;

sockaddr_ll ClientAddress(int link, const base::MacAddress& mac) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  address.sll_ifindex = link;
  address.sll_halen = static_cast<unsigned char>(mac.size());
  std::copy(mac.begin(), mac.end(), address.sll_addr);
  return address;
}

const ServerDatapath* FindServer(const std::vector<ServerDatapath>& servers,
                                 const sockaddr_in& from) {
  const auto server = std::ranges::find_if(servers, [&from](const ServerDatapath& candidate) {
    return candidate.address.sin_addr.s_addr == from.sin_addr.s_addr;
  });
  return server == servers.end() ? nullptr : &*server;
}

}  // namespace

std::size_t ReplyPath::Relay(VrfIfindex vrf, BatchSocket& servers, Outbox& clients) {
  std::size_t total = 0;
  for (int batch = 0; batch < kMaxBatches; ++batch) {
    const std::size_t count = inbox_.Receive(servers);
    for (std::size_t i = 0; i < count; ++i) Take(vrf, inbox_.Get(i), clients);
    Flush(clients);
    total += count;
    if (count < kBatch) break;
  }
  return total;
}

// RFC 1542, section 4.1.2: giaddr identifies the interface that a reply leaves by.
void ReplyPath::Take(VrfIfindex vrf, const Inbox::Message& packet, Outbox& clients) {
  const auto giaddr = GiaddrOf(packet.data, packet.size);
  if (!giaddr) {
    table_.unmatched().Count(control::UnmatchedOutcome::kMalformed);
    return;
  }
  const RelayInterface* const interface = table_.forwarding().FindByAddress(vrf, *giaddr);
  if (interface == nullptr) {
    table_.unmatched().Count(control::UnmatchedOutcome::kUnknownGiaddr);
    return;
  }
  const InterfaceDatapath& datapath = table_.Of(*interface);
  const ServerDatapath* const server = FindServer(*datapath.servers, *packet.from);
  if (const auto refusal = RefusalOf(*interface, server, packet)) {
    CountRefusal(*refusal, *interface, packet);
    return;
  }
  ++datapath.counters->replies;
  if (server != nullptr) ++server->counters->replies;
  const Outcome outcome = Forward(*interface, datapath, packet, clients);
  if (outcome != Outcome::kRelayed) datapath.counters->Count(outcome);
}

// A client could else send leases into the network of another: giaddr and option 82 are no secret,
// and the sender's address may be borrowed. Where the packet came in is not up to the sender.
std::optional<ReplyPath::Outcome> ReplyPath::RefusalOf(const RelayInterface& interface,
                                                       const ServerDatapath* server,
                                                       const Inbox::Message& packet) {
  const Forwarding& forwarding = table_.forwarding();
  if (packet.link != kUnknownLink && !forwarding.ServesClients(packet.link)) {
    const bool refused = server == nullptr && forwarding.trust().servers_only;
    return refused ? std::optional(Outcome::kUnknownServer) : std::nullopt;
  }
  const bool expected_here =
      server != nullptr &&
      routes_.LeadsTo(interface.instance->vrf, nettypes::IPv4Addr(server->address.sin_addr),
                      packet.link);
  return expected_here ? std::nullopt : std::optional(Outcome::kClientSide);
}

// What came in from clients counts where they are, so that the counter leads to the sender.
void ReplyPath::CountRefusal(Outcome refusal, const RelayInterface& interface,
                             const Inbox::Message& packet) {
  const RelayInterface* const arrival = table_.forwarding().FindByLink(packet.link, {});
  const RelayInterface& counting = arrival == nullptr ? interface : *arrival;
  InterfaceCounters& counters = *table_.Of(counting).counters;
  ++counters.replies;
  counters.Count(refusal);
  refusals_.ErrorOf([&] {
    return "refused a reply of " + nettypes::IPv4Addr(packet.from->sin_addr).to_string() +
           " for the clients of " + interface.name + ", counted as " + Name(refusal) + " of " +
           counting.name;
  });
}

ReplyPath::Outcome ReplyPath::Forward(const RelayInterface& interface,
                                      const InterfaceDatapath& datapath,
                                      const Inbox::Message& packet, Outbox& clients) {
  if (packet.truncated) return Outcome::kMalformed;
  MessageBuffer message{.data = packet.data, .size = packet.size, .capacity = packet.capacity};
  const Outcome outcome = RelayReply(interface.relay, message);
  if (outcome != Outcome::kRelayed) return outcome;
  const ReplyTarget target = TargetOf(message);
  WriteHeaders(interface.relay.giaddr, target.address, message.data, message.size);
  clients.Add(message.data - kHeadersSize, message.size + kHeadersSize,
              ClientAddress(interface.link, target.mac), queued_.size());
  queued_.push_back(datapath.counters);
  return Outcome::kRelayed;
}

void ReplyPath::Flush(Outbox& clients) {
  clients.Flush([this](std::size_t tag, bool sent) {
    queued_[tag]->Count(sent ? Outcome::kRelayed : Outcome::kSendFailed);
  });
  queued_.clear();
}

}  // namespace dhcp_manager
