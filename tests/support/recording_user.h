// A DHCP manager client that writes down its calls instead of sending them.

#ifndef TESTS_SUPPORT_RECORDING_USER_H_
#define TESTS_SUPPORT_RECORDING_USER_H_

#include <string>
#include <vector>

#include <dhcp_user/dhcp_user.h>

namespace tests {

class RecordingUser : public dhcp_relay::DhcpUser {
 public:
  using DhcpUser::DhcpUser;

  // One line a call: operation, instance, arguments.
  std::vector<std::string> calls;

  void AddServer(const std::string& instance, nettypes::IPv4Addr server) override {
    Record("AddServer", instance, server.to_string());
  }
  void DeleteServer(const std::string& instance, nettypes::IPv4Addr server) override {
    Record("DeleteServer", instance, server.to_string());
  }
  void DeleteInstance(const std::string& instance) override { Record("DeleteInstance", instance); }
  void AddL3Interface(const std::string& instance, const std::string& interface) override {
    Record("AddL3Interface", instance, interface);
  }
  void SetL3InterfaceAddress(const std::string& instance, const std::string& interface,
                             nettypes::IPv4Addr address) override {
    Record("SetL3InterfaceAddress", instance, interface, address.to_string());
  }
  void SetVrf(const std::string& instance, limid_t vrf) override {
    Record("SetVrf", instance, std::to_string(vrf));
  }
  void SetL3InterfaceVlan(const std::string& instance, const std::string& interface,
                          std::uint16_t vlan) override {
    Record("SetL3InterfaceVlan", instance, interface, std::to_string(vlan));
  }
  void DeleteL3InterfaceVlan(const std::string& instance, const std::string& interface,
                             std::uint16_t vlan) override {
    Record("DeleteL3InterfaceVlan", instance, interface, std::to_string(vlan));
  }
  void DeleteL3Interface(const std::string& instance, const std::string& interface) override {
    Record("DeleteL3Interface", instance, interface);
  }
  void SetTrusted(const std::string& instance, bool trusted) override {
    Record("SetTrusted", instance, Text(trusted));
  }
  void SetOption(const std::string& instance, bool option) override {
    Record("SetOption", instance, Text(option));
  }
  void SetCheck(const std::string& instance, bool check) override {
    Record("SetCheck", instance, Text(check));
  }
  void SetPolicy(const std::string& instance, dhcp_relay::Policy policy) override {
    Record("SetPolicy", instance, Text(policy));
  }
  void DeleteIfOption(const std::string& instance, const std::string& if_option) override {
    Record("DeleteIfOption", instance, if_option);
  }
  void SetIfOptionTrusted(const std::string& instance, const std::string& if_option,
                          bool trusted) override {
    Record("SetIfOptionTrusted", instance, if_option, Text(trusted));
  }
  void SetIfOptionOption(const std::string& instance, const std::string& if_option,
                         bool option) override {
    Record("SetIfOptionOption", instance, if_option, Text(option));
  }
  void SetIfOptionCheck(const std::string& instance, const std::string& if_option,
                        bool check) override {
    Record("SetIfOptionCheck", instance, if_option, Text(check));
  }
  void SetIfOptionPolicy(const std::string& instance, const std::string& if_option,
                         dhcp_relay::Policy policy) override {
    Record("SetIfOptionPolicy", instance, if_option, Text(policy));
  }

 private:
  static std::string Text(bool value) { return value ? "true" : "false"; }
  static std::string Text(dhcp_relay::Policy policy) {
    return std::to_string(static_cast<int>(policy));
  }

  template <typename... Words>
  void Record(const char* operation, const Words&... words) {
    std::string line = operation;
    (line.append(" ").append(words), ...);
    calls.push_back(line);
  }
};

}  // namespace tests

#endif  // TESTS_SUPPORT_RECORDING_USER_H_
