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

sockaddr_ll ClientAddress(int link, const base::MacAddress& mac) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  address.sll_ifindex = link;
  address.sll_halen = static_cast<unsigned char>(mac.size());
  std::copy(mac.begin(), mac.end(), address.sll_addr);
  return address;
}

void CountServer(const std::vector<ServerDatapath>& servers, const sockaddr_in& from) {
  const auto server = std::ranges::find_if(servers, [&from](const ServerDatapath& candidate) {
    return candidate.address.sin_addr.s_addr == from.sin_addr.s_addr;
  });
  if (server != servers.end()) ++server->counters->replies;
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
  ++datapath.counters->replies;
  CountServer(*datapath.servers, *packet.from);
  const Outcome outcome = Forward(*interface, datapath, packet, clients);
  if (outcome != Outcome::kRelayed) datapath.counters->Count(outcome);
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
