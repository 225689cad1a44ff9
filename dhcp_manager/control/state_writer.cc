#include "dhcp_manager/control/state_writer.h"

#include "dhcp_manager/control/reply_writer.h"
#include "protocol/control/control.pb.h"
#include "protocol/control/interface_state.h"
#include "protocol/control/outcome.h"
#include "protocol/control/outcome_counts.h"

namespace dhcp_manager {
namespace {

namespace control = dhcp_relay::control;

void WriteInstance(const RelayInstance& instance, const InstanceCounters& counters,
                   ReplyWriter& replies) {
  InstanceWriter<control::RelayInstance> writer(
      replies, instance.name, [](control::Reply& reply) { return reply.add_relay_instances(); });
  control::RelayInstance& message = writer.Next();
  message.set_vrf_device(instance.vrf_device);
  message.set_vrf_missing(instance.vrf == kUnknownVrf);
  replies.Added(instance.vrf_device.size());
  for (const auto& [address, counts] : counters.servers) {
    control::Server& server = *writer.Next().add_servers();
    server.set_address(address.host_order());
    server.set_sent(counts.sent);
    server.set_failed(counts.failed);
    server.set_replies(counts.replies);
    replies.Added(server.ByteSizeLong());
  }
}

void FillSettings(const RelayParameters& relay, control::Settings& message) {
  message.set_check(relay.check);
  message.set_trusted(relay.trusted);
  message.set_option(relay.option);
  message.set_policy(dhcp_relay::wire::PolicyName(relay.policy));
}

void FillCounters(const InterfaceCounters& counters, control::RelayInterface& message) {
  message.set_requests(counters.requests);
  control::AddOutcomes(control::RequestOutcomes(), counters.request_outcomes,
                       *message.mutable_request_outcomes());
  message.set_option_left_out(counters.option_left_out);
  message.set_replies(counters.replies);
  control::AddOutcomes(control::ReplyOutcomes(), counters.reply_outcomes,
                       *message.mutable_reply_outcomes());
}

void WriteInterface(const RelayInterface& interface, const InterfaceCounters& counters,
                    ReplyWriter& replies) {
  replies.MakeRoom();
  control::RelayInterface& message = *replies.reply().add_relay_interfaces();
  message.set_instance(interface.instance->name);
  message.set_name(interface.name);
  if (interface.vlan) message.set_vlan(*interface.vlan);
  message.set_address(interface.relay.giaddr.host_order());
  message.set_state(Name(interface.state));
  message.set_link(interface.link_name);
  FillSettings(interface.relay, *message.mutable_settings());
  FillCounters(counters, message);
  replies.Added(message.ByteSizeLong());
}

void WriteUnmatched(const UnmatchedCounters& counters, ReplyWriter& replies) {
  replies.MakeRoom();
  control::Unmatched& message = *replies.reply().mutable_unmatched();
  message.set_received(counters.received);
  control::AddOutcomes(control::UnmatchedOutcomes(), counters.outcomes,
                       *message.mutable_outcomes());
}

}  // namespace

std::deque<std::string> WriteState(const RelayState& relay) {
  ReplyWriter replies;
  const auto& counters = relay.counters().instances();
  for (const RelayInstance& instance : relay.forwarding().instances()) {
    WriteInstance(instance, counters.at(instance.name), replies);
  }
  for (const RelayInterface& interface : relay.forwarding().interfaces()) {
    const InstanceCounters& instance = counters.at(interface.instance->name);
    WriteInterface(interface, instance.interfaces.at(interface.name), replies);
  }
  WriteUnmatched(relay.counters().unmatched(), replies);
  return replies.Finish();
}

}  // namespace dhcp_manager
