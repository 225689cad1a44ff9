#include "dhcp_manager/control/table_writer.h"

#include <cstdint>

#include "dhcp_manager/control/reply_writer.h"
#include "protocol/control/control.pb.h"

namespace dhcp_manager {
namespace {

namespace control = dhcp_relay::control;

class TableWriter {
 public:
  TableWriter(ReplyWriter& replies, const std::string& name)
      : replies_(replies),
        instance_(replies, name, [](control::Reply& reply) { return reply.add_instances(); }) {}

  void Write(const Instance& instance) {
    WriteOwnSettings(instance);
    for (const nettypes::IPv4Addr server : instance.servers) WriteServer(server);
    for (const auto& [name, interface] : instance.interfaces) WriteInterface(name, interface);
    for (const auto& [name, settings] : instance.overrides) WriteOverride(name, settings);
  }

 private:
  static void Fill(const Settings& settings, control::Settings& message) {
    if (settings.check) message.set_check(*settings.check);
    if (settings.trusted) message.set_trusted(*settings.trusted);
    if (settings.option) message.set_option(*settings.option);
    if (settings.policy) message.set_policy(dhcp_relay::wire::PolicyName(*settings.policy));
  }

  void WriteOwnSettings(const Instance& instance) {
    control::Instance& message = instance_.Next();
    Fill(instance.settings, *message.mutable_settings());
    if (instance.vrf) message.set_vrf(*instance.vrf);
    replies_.Added(message.settings().ByteSizeLong() + sizeof(limid_t));
  }

  void WriteServer(nettypes::IPv4Addr server) {
    instance_.Next().add_servers(server.host_order());
    replies_.Added(sizeof(std::uint32_t));
  }

  void WriteInterface(const std::string& name, const L3Interface& interface) {
    control::Interface& message = *instance_.Next().add_interfaces();
    message.set_name(name);
    if (interface.vlan) message.set_vlan(*interface.vlan);
    if (interface.address) message.set_address(interface.address->host_order());
    replies_.Added(message.ByteSizeLong());
  }

  void WriteOverride(const std::string& name, const Settings& settings) {
    control::Override& message = *instance_.Next().add_overrides();
    message.set_name(name);
    Fill(settings, *message.mutable_settings());
    replies_.Added(message.ByteSizeLong());
  }

  ReplyWriter& replies_;
  InstanceWriter<control::Instance> instance_;
};

}  // namespace

std::deque<std::string> WriteTable(const RelayTable& table) {
  ReplyWriter replies;
  for (const auto& [name, instance] : table.instances()) {
    TableWriter(replies, name).Write(instance);
  }
  return replies.Finish();
}

}  // namespace dhcp_manager
