// An Ethernet hardware address.

#ifndef BASE_MAC_ADDRESS_H_
#define BASE_MAC_ADDRESS_H_

#include <array>
#include <cstdint>

namespace base {

using MacAddress = std::array<std::uint8_t, 6>;

}  // namespace base

#endif  // BASE_MAC_ADDRESS_H_
