// Doubles of the DHCP manager's client: the platform's class itself, which writes its calls into
// the journal, and a client derived from it, which keeps them to itself.

#ifndef TESTS_FAKES_FAKE_DHCP_USER_H_
#define TESTS_FAKES_FAKE_DHCP_USER_H_

#include <functional>
#include <string>
#include <vector>

#include <dhcp_user/dhcp_user.h>

namespace fakes {

class DhcpUserState {
 public:
  static DhcpUserState& Get();
  void Reset() { *this = DhcpUserState(); }

  // The arguments of the latest DhcpUser: through `callbacks` a test plays the manager.
  vxmw_t* mw = nullptr;
  dhcp_relay::DhcpUser::CallbackIf* callbacks = nullptr;

  std::function<void()> on_destroy;
};

// Calls are kept as "<operation> <instance> <further arguments>", numbers for policies.
class ClientDouble : public dhcp_relay::DhcpUser {
 public:
  ClientDouble() : DhcpUser(nullptr, nullptr) {}
  ~ClientDouble() override;

  std::vector<std::string> calls;

  void AddServer(const std::string& instance, nettypes::IPv4Addr server) override;
  void DeleteServer(const std::string& instance, nettypes::IPv4Addr server) override;
  void DeleteInstance(const std::string& instance) override;
  void AddL3Interface(const std::string& instance, const std::string& interface) override;
  void SetL3InterfaceAddress(const std::string& instance, const std::string& interface,
                             nettypes::IPv4Addr address) override;
  void SetVrf(const std::string& instance, limid_t vrf) override;
  void SetL3InterfaceVlan(const std::string& instance, const std::string& interface,
                          std::uint16_t vlan) override;
  void DeleteL3InterfaceVlan(const std::string& instance, const std::string& interface,
                             std::uint16_t vlan) override;
  void DeleteL3Interface(const std::string& instance, const std::string& interface) override;
  void SetTrusted(const std::string& instance, bool trusted) override;
  void SetOption(const std::string& instance, bool option) override;
  void SetCheck(const std::string& instance, bool check) override;
  void SetPolicy(const std::string& instance, dhcp_relay::Policy policy) override;
  void AddIfOption(const std::string& instance, const std::string& if_option) override;
  void DeleteIfOption(const std::string& instance, const std::string& if_option) override;
  void SetIfOptionTrusted(const std::string& instance, const std::string& if_option,
                          bool trusted) override;
  void SetIfOptionOption(const std::string& instance, const std::string& if_option,
                         bool option) override;
  void SetIfOptionCheck(const std::string& instance, const std::string& if_option,
                        bool check) override;
  void SetIfOptionPolicy(const std::string& instance, const std::string& if_option,
                         dhcp_relay::Policy policy) override;
};

}  // namespace fakes

#endif  // TESTS_FAKES_FAKE_DHCP_USER_H_
