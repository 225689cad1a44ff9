// Messages of rtnetlink as the kernel writes them.

#ifndef TESTS_UNIT_DHCP_MANAGER_KERNEL_NETLINK_MESSAGES_H_
#define TESTS_UNIT_DHCP_MANAGER_KERNEL_NETLINK_MESSAGES_H_

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nettypes/ipv4_addr.h>

#include "dhcp_manager/kernel/link_socket.h"
#include "dhcp_manager/kernel/links.h"

namespace tests {

using Datagram = std::vector<std::byte>;
using Mark = dhcp_manager::LinkSocket::Request;

inline nettypes::IPv4Addr Ip(const std::string& text) { return *nettypes::IPv4Addr::parse(text); }

class Message {
 public:
  template <typename Header>
  Message(int type, const Header& header, const Mark& mark = {}, int flags = 0)
      : message_(nlmsg_alloc(), nlmsg_free) {
    nlmsg_put(message_.get(), mark.port, mark.sequence, type, 0, flags);
    Header copy = header;
    nlmsg_append(message_.get(), &copy, sizeof(copy), NLMSG_ALIGNTO);
  }

  template <typename Value>
  Message& Put(int type, const Value& value) {
    nla_put(message_.get(), type, sizeof(value), &value);
    return *this;
  }
  Message& Put(int type, const std::string& value) {
    nla_put_string(message_.get(), type, value.c_str());
    return *this;
  }
  Message& Put(int type, nettypes::IPv4Addr value) { return Put(type, value.to_in_addr()); }
  // Attributes that are put by `put` within one of `type`.
  template <typename PutInside>
  Message& Nest(int type, PutInside put) {
    nlattr* const nest = nla_nest_start(message_.get(), type);
    put(*this);
    nla_nest_end(message_.get(), nest);
    return *this;
  }

  Datagram Bytes() const {
    const auto* const begin = reinterpret_cast<const std::byte*>(nlmsg_hdr(message_.get()));
    return {begin, begin + nlmsg_hdr(message_.get())->nlmsg_len};
  }

 private:
  std::unique_ptr<nl_msg, void (*)(nl_msg*)> message_;
};

inline Message LinkMessage(const dhcp_manager::Link& link, const Mark& mark = {}, int flags = 0) {
  ifinfomsg header{};
  header.ifi_index = link.index;
  header.ifi_flags = link.up ? IFF_UP : 0;
  Message message(RTM_NEWLINK, header, mark, flags);
  message.Put(IFLA_IFNAME, link.name)
      .Put(IFLA_OPERSTATE, static_cast<std::uint8_t>(link.up ? IF_OPER_UP : IF_OPER_DOWN))
      .Put(IFLA_ADDRESS, link.mac);
  if (link.master != 0) message.Put(IFLA_MASTER, link.master);
  if (link.vrf_table) {
    message.Nest(IFLA_LINKINFO, [&](Message& info) {
      info.Put(IFLA_INFO_KIND, std::string("vrf"));
      info.Nest(IFLA_INFO_DATA, [&](Message& data) { data.Put(IFLA_VRF_TABLE, *link.vrf_table); });
    });
  }
  return message;
}

inline Message LinkGone(int index, unsigned char family = AF_UNSPEC) {
  ifinfomsg header{};
  header.ifi_family = family;
  header.ifi_index = index;
  return {RTM_DELLINK, header};
}

inline Message AddressMessage(const dhcp_manager::LinkAddress& address, int type = RTM_NEWADDR,
                              const Mark& mark = {}, int flags = 0) {
  ifaddrmsg header{};
  header.ifa_family = AF_INET;
  header.ifa_prefixlen = static_cast<std::uint8_t>(address.prefix_length);
  header.ifa_scope = static_cast<std::uint8_t>(address.scope);
  header.ifa_index = static_cast<std::uint32_t>(address.link);
  Message message(type, header, mark, flags);
  message.Put(IFA_ADDRESS, address.peer.is_unspecified() ? address.address : address.peer)
      .Put(IFA_LOCAL, address.address);
  if (!address.broadcast.is_unspecified()) message.Put(IFA_BROADCAST, address.broadcast);
  if (address.secondary) message.Put(IFA_FLAGS, std::uint32_t{IFA_F_SECONDARY | IFA_F_PERMANENT});
  return message;
}

// The end of a dump, or a refusal: the error number, negated.
inline Message EndMessage(int type, const Mark& mark, int error = 0, int flags = 0) {
  return {type, -error, mark, flags};
}

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_KERNEL_NETLINK_MESSAGES_H_
