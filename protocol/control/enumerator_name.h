// The names under which enumerators travel.

#ifndef PROTOCOL_CONTROL_ENUMERATOR_NAME_H_
#define PROTOCOL_CONTROL_ENUMERATOR_NAME_H_

#include <string>
#include <string_view>

namespace dhcp_relay::control {

// "too-many-hops" for "kTooManyHops".
std::string NameOfEnumerator(std::string_view enumerator);

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_ENUMERATOR_NAME_H_
