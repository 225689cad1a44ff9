// Where the DHCP manager answers those who ask it.

#ifndef PROTOCOL_CONTROL_SOCKET_NAME_H_
#define PROTOCOL_CONTROL_SOCKET_NAME_H_

namespace dhcp_relay::control {

// In the directory that base::RuntimeDirectory names.
inline constexpr char kSocketName[] = "ctl.sock";

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_SOCKET_NAME_H_
