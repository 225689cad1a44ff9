// Client of the DHCP manager, the process that relays DHCP packets.
//
// The client connects by itself and again after every loss. Calls are delivered in their order;
// while there is no connection they are dropped, because the manager asks for a dump of the whole
// configuration on every connect. No call blocks or throws. Everything runs on the middleware
// loop's thread.

#ifndef DHCP_USER_DHCP_USER_H_
#define DHCP_USER_DHCP_USER_H_

#include <cstdint>
#include <memory>
#include <string>

#include <limidmgr/limidmgr.h>
#include <nettypes/ipv4_addr.h>
#include <vxmw/vxmw.h>

#pragma GCC visibility push(default)

namespace dhcp_relay {

// What the relay does with a request that already carries a relay agent information option
// (RFC 3046, section 2.1).
enum class Policy : std::int32_t { kDrop = 0, kKeep = 1, kReplace = 2 };

class DhcpUser {
 public:
  // Called by the client, from the loop.
  class CallbackIf {
   public:
    virtual ~CallbackIf() = default;

    // The manager asks for the whole configuration. The calls made before this returns are the
    // answer; while the configuration database is not connected, the calls made until the initial
    // phases end.
    virtual void OnDumpRequest() = 0;

    // The manager withdraws the request, or is gone.
    virtual void OnDumpCancel() = 0;
  };

  // Connects to the socket relay.sock in the directory that DHCP_MANAGER_DIR names
  // (/run/dhcp-manager if unset). `callbacks` must outlive the client.
  DhcpUser(vxmw_t* mw, CallbackIf* callbacks);
  virtual ~DhcpUser();
  DhcpUser(const DhcpUser&) = delete;
  DhcpUser& operator=(const DhcpUser&) = delete;

  // `instance` is the relay instance's name, at most 255 bytes, as every other name. 0 in place of
  // an identifier clears the VRF.
  virtual void AddServer(const std::string& instance, nettypes::IPv4Addr server);
  virtual void DeleteServer(const std::string& instance, nettypes::IPv4Addr server);
  virtual void DeleteInstance(const std::string& instance);
  virtual void AddL3Interface(const std::string& instance, const std::string& interface);
  virtual void SetL3InterfaceAddress(const std::string& instance, const std::string& interface,
                                     nettypes::IPv4Addr address);
  virtual void SetVrf(const std::string& instance, limid_t vrf);
  virtual void SetL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                  std::uint16_t vlan);
  virtual void DeleteL3InterfaceVlan(const std::string& instance, const std::string& interface,
                                     std::uint16_t vlan);
  virtual void DeleteL3Interface(const std::string& instance, const std::string& interface);
  virtual void SetTrusted(const std::string& instance, bool trusted);
  virtual void SetOption(const std::string& instance, bool option);
  virtual void SetCheck(const std::string& instance, bool check);
  virtual void SetPolicy(const std::string& instance, Policy policy);
  virtual void AddIfOption(const std::string& instance, const std::string& if_option);
  virtual void DeleteIfOption(const std::string& instance, const std::string& if_option);
  virtual void SetIfOptionTrusted(const std::string& instance, const std::string& if_option,
                                  bool trusted);
  virtual void SetIfOptionOption(const std::string& instance, const std::string& if_option,
                                 bool option);
  virtual void SetIfOptionCheck(const std::string& instance, const std::string& if_option,
                                bool check);
  virtual void SetIfOptionPolicy(const std::string& instance, const std::string& if_option,
                                 Policy policy);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dhcp_relay

#pragma GCC visibility pop

#endif  // DHCP_USER_DHCP_USER_H_
