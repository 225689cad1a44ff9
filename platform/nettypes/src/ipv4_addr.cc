#include <arpa/inet.h>

#include <array>

#include <nettypes/ipv4_addr.h>

namespace nettypes {

IPv4Addr::IPv4Addr(in_addr addr) noexcept : host_order_(ntohl(addr.s_addr)) {}

std::optional<IPv4Addr> IPv4Addr::parse(std::string_view text) {
  const std::string terminated(text);
  in_addr addr{};
  if (text.find('\0') != std::string_view::npos ||
      inet_pton(AF_INET, terminated.c_str(), &addr) != 1) {
    return std::nullopt;
  }
  return IPv4Addr(addr);
}

std::string IPv4Addr::to_string() const {
  std::array<char, INET_ADDRSTRLEN> text{};
  const in_addr addr = to_in_addr();
  return inet_ntop(AF_INET, &addr, text.data(), text.size());
}

in_addr IPv4Addr::to_in_addr() const noexcept { return in_addr{htonl(host_order_)}; }

std::ostream& operator<<(std::ostream& out, const IPv4Addr& addr) {
  return out << addr.to_string();
}

}  // namespace nettypes
