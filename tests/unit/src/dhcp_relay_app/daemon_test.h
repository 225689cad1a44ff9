// What the daemon's tests share: a fixture that starts from clean doubles and afterwards finds no
// session open and no value unreleased, a component that keeps what it receives, and printing of
// records in failed tests.

#ifndef TESTS_UNIT_SRC_DHCP_RELAY_APP_DAEMON_TEST_H_
#define TESTS_UNIT_SRC_DHCP_RELAY_APP_DAEMON_TEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <nettypes/ipv4_addr.h>

#include "src/dhcp_relay_app/command.h"
#include "src/dhcp_relay_app/dhcp_relay_cfg_handler.h"
#include "src/dhcp_relay_app/dhcp_relay_intf.h"
#include "src/dhcp_relay_app/mediator.h"
#include "src/lib/logger.h"
#include "tests/fakes/fake_confd.h"
#include "tests/fakes/fake_dhcp_user.h"
#include "tests/fakes/fake_vxconfd.h"
#include "tests/fakes/fake_vxmw.h"
#include "tests/fakes/fake_zlog.h"
#include "tests/fakes/journal.h"

namespace dhcp_relay_app {

inline constexpr char kHandlerPath[] = "src/dhcp_relay_app/dhcp_relay_cfg_handler";

inline nettypes::IPv4Addr Ip(const char* dotted) { return *nettypes::IPv4Addr::parse(dotted); }

inline void PrintTo(const DhcpRelayIntf& intf, std::ostream* out) {
  *out << intf.ToString() << "\t(VRF " << intf.vrf_id() << (intf.vrf_deleted() ? " deleted" : "")
       << ")\n";
}

// A record in which no field has the value it had at construction.
DhcpRelayIntf FullRecord(const std::string& name);

class DaemonTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  fakes::Journal& journal_ = fakes::Journal::Get();
  fakes::Confd& confd_ = fakes::Confd::Get();
  fakes::Vxconfd& adapter_ = fakes::Vxconfd::Get();
  fakes::Vxmw& middleware_ = fakes::Vxmw::Get();
  fakes::Zlog& log_ = fakes::Zlog::Get();
  fakes::DhcpUserState& dhcp_user_ = fakes::DhcpUserState::Get();
};

struct Received {
  DhcpRelayIntf intf;
  bool is_delete = false;
};

inline bool operator==(const Received& a, const Received& b) {
  return a.intf == b.intf && a.is_delete == b.is_delete;
}
inline void PrintTo(const Received& received, std::ostream* out) {
  *out << (received.is_delete ? "delete of " : "set of ");
  PrintTo(received.intf, out);
}

// Keeps the records it receives and notes every command in the journal.
class Receiver : public Component {
 public:
  explicit Receiver(std::shared_ptr<Mediator> mediator, std::string name = "receiver")
      : Component(std::move(mediator)), name_(std::move(name)) {}

  void HandleCommand(Command* command) override;

  std::vector<Command*> commands;
  std::vector<Received> records;
  std::function<void(Command*)> on_command;

 private:
  std::string name_;
};

// The handler's batch and its private operations.
struct DhcpRelayCfgHandlerPeer {
  static std::list<DhcpRelayIntf>& Batch(DhcpRelayCfgHandler& h) { return h.relay_intfs_; }
  static bool DumpPending(const DhcpRelayCfgHandler& h) { return h.dump_pending_; }
  static void SetDumpPending(DhcpRelayCfgHandler& h, bool pending) { h.dump_pending_ = pending; }
  static const std::vector<vxconfd::SubscriptionPoint>& BasePoints(const DhcpRelayCfgHandler& h) {
    return h.points_;
  }

  static void DumpConfig(DhcpRelayCfgHandler& h) { h.DumpConfig(); }
  static std::int64_t GetCdbNumInstance(DhcpRelayCfgHandler& h, int sock, const std::string& path) {
    return h.GetCdbNumInstance(sock, path);
  }
  static L3IfLookup FindRelayOfL3If(DhcpRelayCfgHandler& h, const std::string& relay_if_name) {
    return h.FindRelayOfL3If(relay_if_name);
  }
  static DhcpRelayIntf& GetOrAddRelayIntf(DhcpRelayCfgHandler& h, const std::string& name) {
    return h.GetOrAddRelayIntf(name);
  }
  static void SendSetConfig(DhcpRelayCfgHandler& h) { h.SendSetConfig(); }
  static void SendDeleteConfig(DhcpRelayCfgHandler& h) { h.SendDeleteConfig(); }
};

// A handler on a controller, with a receiver as its counterpart and a database to be filled.
class HandlerTest : public DaemonTest {
 protected:
  using Peer = DhcpRelayCfgHandlerPeer;

  void SetUp() override;

  // Appends instances with every switch off and policy keep to the database's list.
  void AddInstance(const std::string& name);
  void SetInstances(const std::vector<std::string>& names);

  // The eight and the six values as the database delivers them.
  static std::vector<fakes::Value> InstanceData(const fakes::Value& option,
                                                const fakes::Value& check,
                                                const fakes::Value& trusted,
                                                const fakes::Value& policy);
  static std::vector<fakes::Value> IfOptionData(const fakes::Value& option,
                                                const fakes::Value& check,
                                                const fakes::Value& trusted,
                                                const fakes::Value& policy);

  std::list<DhcpRelayIntf>& Batch() { return Peer::Batch(*handler_); }
  std::vector<std::string> BatchNames();

  fakes::Interface interface_;
  std::shared_ptr<Controller> controller_;
  std::shared_ptr<DhcpRelayCfgHandler> handler_;
  std::unique_ptr<Receiver> receiver_;
  std::vector<fakes::Value> instance_keys_;
};

}  // namespace dhcp_relay_app

#endif  // TESTS_UNIT_SRC_DHCP_RELAY_APP_DAEMON_TEST_H_
