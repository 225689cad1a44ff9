#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {

DhcpRelayIntf FullRecord(const std::string& name) {
  DhcpRelayIntf intf(name);
  intf.check = TriState::kYes;
  intf.option = TriState::kNo;
  intf.trusted = TriState::kYes;
  intf.policy = DhcpRelayPolicy::kReplace;
  intf.SetShouldDelete();
  intf.SetVrfDeleted();
  intf.SetVrfId(7);
  intf.AddServerAddr(Ip("10.0.0.1"));
  intf.AddServerAddr(Ip("10.0.0.2"));
  intf.AddDeletedServerAddr(Ip("10.0.0.3"));
  intf.AddDeletedServerAddr(Ip("10.0.0.4"));
  DhcpRelayL3Intf& l3_intf = intf.GetOrAddL3Intf("l3-5");
  l3_intf.SetShouldDelete();
  l3_intf.SetAddedVlanId(5);
  l3_intf.SetDeletedVlanId(6);
  l3_intf.SetIpv4Addr(Ip("192.168.1.1"));
  intf.GetOrAddL3Intf("l3-6");
  DhcpRelayIfOption& if_option = intf.GetOrAddIfOption("l3-5");
  if_option.check = TriState::kNo;
  if_option.option = TriState::kYes;
  if_option.trusted = TriState::kNo;
  if_option.policy = DhcpRelayPolicy::kDrop;
  if_option.SetShouldDelete();
  intf.GetOrAddIfOption("l3-6");
  return intf;
}

void DaemonTest::SetUp() {
  journal_.Clear();
  confd_.Reset();
  adapter_.Reset();
  middleware_.Reset();
  log_.Reset();
  dhcp_user_.Reset();
  Logger::Instance().category = fakes::Vxmw::Category();
}

void DaemonTest::TearDown() {
  Logger::Instance().category = nullptr;
  EXPECT_EQ(confd_.open_sessions(), 0);
  EXPECT_EQ(confd_.stray_calls(), 0);
  EXPECT_EQ(confd_.owned_blocks(), 0);
  EXPECT_EQ(confd_.unreleased_values(), 0);
  EXPECT_EQ(confd_.freed_twice(), 0);
  EXPECT_EQ(log_.wrong_lengths, 0);
}

void Receiver::HandleCommand(Command* command) {
  std::string kind = command == nullptr ? "null" : "other";
  if (const auto* intf_cmd = dynamic_cast<DhcpRelayIntfCmd*>(command)) {
    kind = (intf_cmd->is_delete ? "delete " : "set ") + intf_cmd->intf.name();
    records.push_back({intf_cmd->intf, intf_cmd->is_delete});
  } else if (dynamic_cast<DhcpDumpRequest*>(command) != nullptr) {
    kind = "dump request";
  } else if (dynamic_cast<DhcpDumpCancel*>(command) != nullptr) {
    kind = "dump cancel";
  }
  fakes::Journal::Get().Add(name_ + ": " + kind);
  commands.push_back(command);
  if (on_command) on_command(command);
}

void HandlerTest::SetUp() {
  DaemonTest::SetUp();
  controller_ = std::make_shared<Controller>();
  handler_ = std::make_shared<DhcpRelayCfgHandler>(fakes::Vxmw::Handle(), controller_);
  handler_->set_interface(&interface_);
  receiver_ = std::make_unique<Receiver>(controller_);
}

void HandlerTest::AddInstance(const std::string& name) {
  instance_keys_.push_back(fakes::Buf(name));
  confd_.SetList("/config/dhcp/relay", instance_keys_);
  confd_.SetObject("/config/dhcp/relay{" + name + "}",
                   InstanceData(fakes::Flag(false), fakes::Flag(false), fakes::Flag(false),
                                fakes::Enumeration(1)));
}

void HandlerTest::SetInstances(const std::vector<std::string>& names) {
  for (const std::string& name : names) AddInstance(name);
}

// What stands in front of the flags owns memory, so that a leak of it shows.
std::vector<fakes::Value> HandlerTest::InstanceData(const fakes::Value& option,
                                                    const fakes::Value& check,
                                                    const fakes::Value& trusted,
                                                    const fakes::Value& policy) {
  return {fakes::Buf("key"),
          fakes::Buf("vrf"),
          fakes::Absent(),
          fakes::Unprintable(),
          option,
          check,
          trusted,
          policy};
}

std::vector<fakes::Value> HandlerTest::IfOptionData(const fakes::Value& option,
                                                    const fakes::Value& check,
                                                    const fakes::Value& trusted,
                                                    const fakes::Value& policy) {
  return {fakes::Buf("key"), fakes::Unprintable(), option, check, trusted, policy};
}

std::vector<std::string> HandlerTest::BatchNames() {
  std::vector<std::string> names;
  for (const DhcpRelayIntf& intf : Batch()) names.push_back(intf.name());
  return names;
}

}  // namespace dhcp_relay_app
