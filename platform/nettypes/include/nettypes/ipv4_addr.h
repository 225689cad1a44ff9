// nettypes::IPv4Addr: one IPv4 address as a value.

#ifndef NETTYPES_IPV4_ADDR_H_
#define NETTYPES_IPV4_ADDR_H_

#include <netinet/in.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)

namespace nettypes {

class IPv4Addr {
 public:
  // 0.0.0.0, the unspecified address (RFC 1122, section 3.2.1.3).
  constexpr IPv4Addr() noexcept = default;

  // `addr` is in network byte order, as the socket API and ConfD's IPv4 values hold it.
  explicit IPv4Addr(in_addr addr) noexcept;

  // The address whose numeric value is `number`: 0xC0000201 for 192.0.2.1.
  static constexpr IPv4Addr from_host_order(std::uint32_t number) noexcept {
    IPv4Addr addr;
    addr.host_order_ = number;
    return addr;
  }
  constexpr std::uint32_t host_order() const noexcept { return host_order_; }

  // Reads exactly four decimal octets ("192.0.2.1"); anything else yields no value.
  static std::optional<IPv4Addr> parse(std::string_view text);

  // Dotted decimal; "0.0.0.0" for the unspecified address.
  std::string to_string() const;

  bool is_unspecified() const noexcept { return host_order_ == 0; }

  // Network byte order.
  in_addr to_in_addr() const noexcept;

  // Addresses order by their numeric value.
  // NOLINTNEXTLINE(modernize-use-nullptr): the generated comparison holds a literal 0
  friend constexpr auto operator<=>(const IPv4Addr&, const IPv4Addr&) noexcept = default;

 private:
  std::uint32_t host_order_ = 0;
};

std::ostream& operator<<(std::ostream& out, const IPv4Addr& addr);

}  // namespace nettypes

#pragma GCC visibility pop

#endif  // NETTYPES_IPV4_ADDR_H_
