#include "dhcp_manager/kernel/link_messages.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace dhcp_manager {
namespace {

constexpr char kVrfKind[] = "vrf";

// The attributes of a message or of an attribute, by type; kMax is the highest that is read.
template <int kMax>
using Attributes = std::array<nlattr*, kMax + 1>;

void Check(int result) {
  if (result < 0) {
    throw std::runtime_error(std::string("cannot read a message of the kernel: ") +
                             nl_geterror(result));
  }
}

// libnl's parsers take no const, and only read.
template <int kMax>
Attributes<kMax> AttributesOf(const nlmsghdr& message, std::size_t header_size) {
  Attributes<kMax> attributes{};
  Check(nlmsg_parse(const_cast<nlmsghdr*>(&message), static_cast<int>(header_size),
                    attributes.data(), kMax, nullptr));
  return attributes;
}

template <int kMax>
Attributes<kMax> AttributesOf(nlattr* nest) {
  Attributes<kMax> attributes{};
  if (nest != nullptr) Check(nla_parse_nested(attributes.data(), kMax, nest, nullptr));
  return attributes;
}

template <typename Value>
std::optional<Value> ValueOf(const nlattr* attribute) {
  Value value{};
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(value))) return {};
  std::memcpy(&value, nla_data(attribute), sizeof(value));
  return value;
}

std::string StringOf(const nlattr* attribute) {
  if (attribute == nullptr) return {};
  const auto* const text = static_cast<const char*>(nla_data(attribute));
  return {text, strnlen(text, static_cast<std::size_t>(nla_len(attribute)))};
}

nettypes::IPv4Addr AddressOf(const nlattr* attribute) {
  return nettypes::IPv4Addr(ValueOf<in_addr>(attribute).value_or(in_addr{}));
}

base::MacAddress MacOf(const nlattr* attribute) {
  const bool ethernet =
      attribute != nullptr && nla_len(attribute) == static_cast<int>(sizeof(base::MacAddress));
  return ethernet ? *ValueOf<base::MacAddress>(attribute) : base::MacAddress{};
}

bool IsUp(unsigned flags, const nlattr* state_attribute) {
  const std::uint8_t state = ValueOf<std::uint8_t>(state_attribute).value_or(IF_OPER_UNKNOWN);
  const bool carrier = state == IF_OPER_UP || state == IF_OPER_UNKNOWN;
  return (flags & IFF_UP) != 0 && carrier;
}

std::optional<std::uint32_t> VrfTable(const std::string& name, nlattr* information,
                                      const VrfDevices& vrf_devices) {
  const auto attributes = AttributesOf<IFLA_INFO_DATA>(information);
  if (StringOf(attributes[IFLA_INFO_KIND]) == kVrfKind) {
    const auto table = ValueOf<std::uint32_t>(
        AttributesOf<IFLA_VRF_TABLE>(attributes[IFLA_INFO_DATA])[IFLA_VRF_TABLE]);
    if (table) return table;
  }
  const auto found = std::ranges::find(vrf_devices, name, &VrfDevices::value_type::second);
  return found == vrf_devices.end() ? std::nullopt : std::optional(found->first);
}

void SetLink(const nlmsghdr& message, const ifinfomsg& header, const VrfDevices& vrf_devices,
             Links& links) {
  const auto attributes = AttributesOf<IFLA_LINKINFO>(message, sizeof(header));
  const std::string name = StringOf(attributes[IFLA_IFNAME]);
  links.SetLink({.index = header.ifi_index,
                 .name = name,
                 .up = IsUp(header.ifi_flags, attributes[IFLA_OPERSTATE]),
                 .mac = MacOf(attributes[IFLA_ADDRESS]),
                 .master = ValueOf<int>(attributes[IFLA_MASTER]).value_or(0),
                 .vrf_table = VrfTable(name, attributes[IFLA_LINKINFO], vrf_devices)});
}

void ApplyLink(const nlmsghdr& message, const VrfDevices& vrf_devices, Links& links) {
  const auto& header = *static_cast<const ifinfomsg*>(nlmsg_data(&message));
  // In the family of bridges, a message tells of a bridge's port: when one is deleted, the link
  // stays. All of a link is told in no family.
  if (header.ifi_family != AF_UNSPEC) return;
  if (message.nlmsg_type == RTM_DELLINK) {
    links.RemoveLink(header.ifi_index);
  } else {
    SetLink(message, header, vrf_devices, links);
  }
}

LinkAddress ToAddress(const nlmsghdr& message, const ifaddrmsg& header) {
  const auto attributes = AttributesOf<IFA_FLAGS>(message, sizeof(header));
  const auto flags = ValueOf<std::uint32_t>(attributes[IFA_FLAGS]).value_or(header.ifa_flags);
  const bool has_local = attributes[IFA_LOCAL] != nullptr;
  return {.link = static_cast<int>(header.ifa_index),
          .address = AddressOf(attributes[has_local ? IFA_LOCAL : IFA_ADDRESS]),
          .broadcast = AddressOf(attributes[IFA_BROADCAST]),
          .prefix_length = header.ifa_prefixlen,
          .secondary = (flags & IFA_F_SECONDARY) != 0,
          .scope = header.ifa_scope,
          .peer = AddressOf(attributes[IFA_ADDRESS])};
}

void ApplyAddress(const nlmsghdr& message, Links& links) {
  const auto& header = *static_cast<const ifaddrmsg*>(nlmsg_data(&message));
  if (header.ifa_family != AF_INET) return;
  const LinkAddress address = ToAddress(message, header);
  if (message.nlmsg_type == RTM_DELADDR) {
    links.RemoveAddress(address);
  } else {
    links.SetAddress(address);
  }
}

bool HasRoomFor(const nlmsghdr& message, std::size_t header_size) {
  return nlmsg_valid_hdr(&message, static_cast<int>(header_size)) != 0;
}

}  // namespace

void ApplyMessage(const nlmsghdr& message, const VrfDevices& vrf_devices, Links& links) {
  switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      if (!HasRoomFor(message, sizeof(ifinfomsg))) Check(-NLE_MSG_TOOSHORT);
      ApplyLink(message, vrf_devices, links);
      break;
    case RTM_NEWADDR:
    case RTM_DELADDR:
      if (!HasRoomFor(message, sizeof(ifaddrmsg))) Check(-NLE_MSG_TOOSHORT);
      ApplyAddress(message, links);
      break;
    default:
      break;
  }
}

}  // namespace dhcp_manager
