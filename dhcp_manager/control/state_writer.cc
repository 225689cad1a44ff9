#include "dhcp_manager/control/state_writer.h"

#include "base/packet_socket.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {
namespace {

// A reply is closed at this size, in bytes; the one item more that it may hold still fits a packet.
constexpr std::size_t kReplySize = base::kMaxPacketSize / 2;

template <typename Counts, typename Field>
void Copy(const Counts& counts, Field* field) {
  field->Assign(counts.begin(), counts.end());
}

class Writer {
 public:
  void Add(const control::Service& service) { Grow(*reply_.add_services() = service); }
  void Add(const control::Port& port) { Grow(*reply_.add_ports() = port); }

  std::deque<std::string> Finish(const control::Strays& unmatched) {
    *reply_.mutable_strays() = unmatched;
    reply_.set_last(true);
    Close();
    return std::move(replies_);
  }

 private:
  template <typename Message>
  void Grow(const Message& message) {
    size_ += message.ByteSizeLong();
    if (size_ >= kReplySize) Close();
  }

  void Close() {
    replies_.push_back(reply_.SerializeAsString());
    reply_.Clear();
    size_ = 0;
  }

  std::deque<std::string> replies_;
  control::Reply reply_;
  std::size_t size_ = 0;
};

}  // namespace

control::Service ServiceState(const RelayInstance& instance, const Counters& counters) {
  control::Service state;
  state.set_instance(instance.name);
  state.set_vrf_device(instance.vrf_device);
  state.set_vrf_missing(instance.vrf == kUnknownVrf);
  for (const auto& [address, server] : counters.instances().at(instance.name).servers) {
    control::ServerState& message = *state.add_servers();
    message.set_address(address.host_order());
    message.set_sent(server.sent);
    message.set_failed(server.failed);
    message.set_replies(server.replies);
  }
  return state;
}

control::Port PortStateOf(const RelayInterface& port, const Counters& counters) {
  control::Port state;
  state.set_instance(port.instance->name);
  state.set_name(port.name);
  if (port.vlan) state.set_vlan(*port.vlan);
  state.set_address(port.relay.giaddr.host_order());
  state.set_state(Name(port.state));
  state.set_link(port.link_name);
  control::Options& options = *state.mutable_options();
  options.set_check(port.relay.check);
  options.set_trusted(port.relay.trusted);
  options.set_option(port.relay.option);
  options.set_policy(static_cast<std::uint32_t>(port.relay.policy));
  const InterfaceCounters& counts =
      counters.instances().at(port.instance->name).interfaces.at(port.name);
  state.set_requests(counts.requests);
  Copy(counts.request_outcomes, state.mutable_request_fates());
  state.set_option_left_out(counts.option_left_out);
  state.set_replies(counts.replies);
  Copy(counts.reply_outcomes, state.mutable_reply_fates());
  return state;
}

control::Strays StrayState(const Counters& counters) {
  control::Strays state;
  state.set_received(counters.unmatched().received);
  Copy(counters.unmatched().outcomes, state.mutable_fates());
  return state;
}

std::deque<std::string> WriteState(const Forwarding& forwarding, const Counters& counters) {
  Writer writer;
  for (const RelayInstance& instance : forwarding.instances()) {
    writer.Add(ServiceState(instance, counters));
  }
  for (const RelayInterface& port : forwarding.interfaces())
    writer.Add(PortStateOf(port, counters));
  return writer.Finish(StrayState(counters));
}

}  // namespace dhcp_manager
