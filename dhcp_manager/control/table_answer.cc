#include "dhcp_manager/control/table_answer.h"

#include "protocol/control/control.pb.h"

namespace dhcp_manager {
namespace {

namespace control = dhcp_relay::control;

void Fill(const Settings& settings, control::Settings& message) {
  if (settings.check) message.set_check(*settings.check);
  if (settings.trusted) message.set_trusted(*settings.trusted);
  if (settings.option) message.set_option(*settings.option);
  if (settings.policy) message.set_policy(dhcp_relay::wire::PolicyName(*settings.policy));
}

}  // namespace

TableAnswer::Size TableAnswer::WriteNext(control::Reply& reply) {
  const auto& instances = resync_.table().instances();
  if (const auto found = instances.find(instance_); found != instances.end()) {
    if (const auto size = WritePart(found->second, reply)) return size;
  }
  const auto next = instances.upper_bound(instance_);
  if (next == instances.end()) return std::nullopt;
  instance_ = next->first;
  return WriteOwn(next->second, reply);
}

std::size_t TableAnswer::WriteOwn(const Instance& instance, control::Reply& reply) {
  interface_.clear();
  override_.clear();
  server_.reset();
  control::Instance& message = Message(reply);
  Fill(instance.settings, *message.mutable_settings());
  if (instance.vrf) message.set_vrf(*instance.vrf);
  return message.ByteSizeLong();
}

TableAnswer::Size TableAnswer::WritePart(const Instance& instance, control::Reply& reply) {
  if (const auto size = WriteServer(instance, reply)) return size;
  if (const auto size = WriteInterface(instance, reply)) return size;
  return WriteOverride(instance, reply);
}

TableAnswer::Size TableAnswer::WriteServer(const Instance& instance, control::Reply& reply) {
  const auto& servers = instance.servers;
  const auto next = server_ ? servers.upper_bound(*server_) : servers.begin();
  if (next == servers.end()) return std::nullopt;
  server_ = *next;
  Message(reply).add_servers(next->host_order());
  return sizeof(std::uint32_t);
}

TableAnswer::Size TableAnswer::WriteInterface(const Instance& instance, control::Reply& reply) {
  const auto next = instance.interfaces.upper_bound(interface_);
  if (next == instance.interfaces.end()) return std::nullopt;
  const auto& [name, interface] = *next;
  interface_ = name;
  control::Interface& message = *Message(reply).add_interfaces();
  message.set_name(name);
  if (interface.vlan) message.set_vlan(*interface.vlan);
  if (interface.address) message.set_address(interface.address->host_order());
  return message.ByteSizeLong();
}

TableAnswer::Size TableAnswer::WriteOverride(const Instance& instance, control::Reply& reply) {
  const auto next = instance.overrides.upper_bound(override_);
  if (next == instance.overrides.end()) return std::nullopt;
  override_ = next->first;
  control::Override& message = *Message(reply).add_overrides();
  message.set_name(next->first);
  Fill(next->second, *message.mutable_settings());
  return message.ByteSizeLong();
}

control::Instance& TableAnswer::Message(control::Reply& reply) const {
  auto& instances = *reply.mutable_instances();
  if (!instances.empty() && instances.rbegin()->name() == instance_) return *instances.rbegin();
  control::Instance& message = *instances.Add();
  message.set_name(instance_);
  return message;
}

}  // namespace dhcp_manager
