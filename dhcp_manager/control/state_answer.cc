#include "dhcp_manager/control/state_answer.h"

#include <algorithm>
#include <utility>

#include "dhcp_manager/control/kernel_drops.h"
#include "protocol/control/control.pb.h"
#include "protocol/control/interface_state.h"
#include "protocol/control/outcome.h"
#include "protocol/control/outcome_counts.h"

namespace dhcp_manager {
namespace {

namespace control = dhcp_relay::control;

using InterfaceKey = std::pair<std::string_view, std::string_view>;

InterfaceKey KeyOf(const RelayInterface& interface) {
  return {interface.instance->name, interface.name};
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

// An interface that is up relays nothing while its VRF has no socket.
void FillState(InterfaceState state, const std::string& socket_failure,
               control::RelayInterface& message) {
  const bool has_no_socket = state == InterfaceState::kUp && !socket_failure.empty();
  message.set_state(Name(has_no_socket ? InterfaceState::kNoSocket : state));
  if (has_no_socket) message.set_reason(socket_failure);
}

void Fill(const RelayInterface& interface, const InterfaceCounters& counters,
          control::RelayInterface& message) {
  message.set_instance(interface.instance->name);
  message.set_name(interface.name);
  if (interface.vlan) message.set_vlan(*interface.vlan);
  message.set_address(interface.relay.giaddr.host_order());
  message.set_link(interface.link_name);
  FillSettings(interface.relay, *message.mutable_settings());
  FillCounters(counters, message);
}

}  // namespace

StateAnswer::Size StateAnswer::WriteNext(control::Reply& reply) {
  if (const auto size = WritePart(reply)) return size;
  const auto& instances = relay_.forwarding().instances();
  const auto next = std::ranges::upper_bound(instances, instance_, {}, &RelayInstance::name);
  if (next == instances.end()) return WriteUnmatched(reply);
  instance_ = next->name;
  return WriteOwn(*next, reply);
}

std::size_t StateAnswer::WriteOwn(const RelayInstance& instance, control::Reply& reply) {
  interface_.clear();
  server_.reset();
  control::RelayInstance& message = Message(reply);
  message.set_vrf_device(instance.vrf_device);
  message.set_vrf_missing(instance.vrf == kUnknownVrf);
  return message.ByteSizeLong();
}

StateAnswer::Size StateAnswer::WritePart(control::Reply& reply) {
  if (const auto size = WriteServer(reply)) return size;
  return WriteInterface(reply);
}

StateAnswer::Size StateAnswer::WriteServer(control::Reply& reply) {
  const auto& instances = relay_.counters().instances();
  const auto instance = instances.find(instance_);
  if (instance == instances.end()) return std::nullopt;
  const auto& servers = instance->second.servers;
  const auto next = server_ ? servers.upper_bound(*server_) : servers.begin();
  if (next == servers.end()) return std::nullopt;
  const auto& [address, counts] = *next;
  server_ = address;
  control::Server& server = *Message(reply).add_servers();
  server.set_address(address.host_order());
  server.set_sent(counts.sent);
  server.set_failed(counts.failed);
  server.set_replies(counts.replies);
  return server.ByteSizeLong();
}

StateAnswer::Size StateAnswer::WriteInterface(control::Reply& reply) {
  const auto& interfaces = relay_.forwarding().interfaces();
  const auto next =
      std::ranges::upper_bound(interfaces, InterfaceKey(instance_, interface_), {}, KeyOf);
  if (next == interfaces.end() || next->instance->name != instance_) return std::nullopt;
  interface_ = next->name;
  const InstanceCounters& counters = relay_.counters().instances().at(instance_);
  control::RelayInterface& message = *reply.add_relay_interfaces();
  Fill(*next, counters.interfaces.at(interface_), message);
  FillState(next->state, relay_.SocketFailureOf(next->instance->vrf), message);
  return message.ByteSizeLong();
}

StateAnswer::Size StateAnswer::WriteUnmatched(control::Reply& reply) {
  if (std::exchange(has_unmatched_, true)) return std::nullopt;
  const UnmatchedCounters& counters = relay_.counters().unmatched();
  control::Unmatched& message = *reply.mutable_unmatched();
  message.set_received(counters.received);
  control::AddOutcomes(control::UnmatchedOutcomes(), counters.outcomes,
                       *message.mutable_outcomes());
  dhcp_manager::Fill(relay_.counters().kernel_drops(), *reply.mutable_kernel_drops());
  return message.ByteSizeLong() + reply.kernel_drops().ByteSizeLong();
}

control::RelayInstance& StateAnswer::Message(control::Reply& reply) const {
  auto& instances = *reply.mutable_relay_instances();
  if (!instances.empty() && instances.rbegin()->name() == instance_) return *instances.rbegin();
  control::RelayInstance& message = *instances.Add();
  message.set_name(instance_);
  return message;
}

}  // namespace dhcp_manager
