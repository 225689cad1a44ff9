#include "dhcp_manager/kernel/route_query.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/route.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>

#include "base/socket_buffers.h"
#include "base/system_error.h"
#include "dhcp_manager/kernel/netlink_handle.h"

namespace dhcp_manager {
namespace {

constexpr char kAsk[] = "ask for the kernel's routes";

// The first change is all that matters, so there is room for hardly more, and what does not fit is
// no error.
Netlink<nl_sock> OpenEventSocket() {
  constexpr std::array kGroups{RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV4_RULE, RTNLGRP_NEXTHOP, RTNLGRP_LINK,
                               RTNLGRP_IPV4_IFADDR};
  Netlink<nl_sock> socket = OpenNetlinkSocket(kAsk);
  const int fd = nl_socket_get_fd(socket.get());
  constexpr int kOn = 1;
  if (setsockopt(fd, SOL_NETLINK, NETLINK_NO_ENOBUFS, &kOn, sizeof(kOn)) != 0) {
    base::ThrowSystemError("cannot watch the kernel's routes");
  }
  base::SetReceiveBuffer(fd, 1);
  for (const int group : kGroups) {
    CheckNetlink(nl_socket_add_membership(socket.get(), group), "watch the kernel's routes");
  }
  return socket;
}

// Asks for the entry of the routing table, which names every next hop. With the index of a VRF's
// device, the kernel looks in the VRF's table.
Netlink<nl_msg> MakeRequest(VrfIfindex vrf, nettypes::IPv4Addr address) {
  constexpr unsigned char kAddressBits = 32;
  Netlink<nl_msg> message(nlmsg_alloc_simple(RTM_GETROUTE, NLM_F_REQUEST));
  if (!message) throw std::bad_alloc();
  rtmsg header{};
  header.rtm_family = AF_INET;
  header.rtm_dst_len = kAddressBits;
  header.rtm_flags = RTM_F_FIB_MATCH;
  CheckNetlink(nlmsg_append(message.get(), &header, sizeof(header), NLMSG_ALIGNTO),
               "make a request");
  const in_addr destination = address.to_in_addr();
  CheckNetlink(nla_put(message.get(), RTA_DST, sizeof(destination), &destination),
               "make a request");
  if (vrf != kDefaultVrf) {
    CheckNetlink(nla_put_u32(message.get(), RTA_OIF, static_cast<std::uint32_t>(vrf)),
                 "make a request");
  }
  return message;
}

// There is no route: an answer like others. But the kernel may also have had no memory for one.
void CheckRefusal(const nlmsghdr& answer) {
  if (answer.nlmsg_type != NLMSG_ERROR || nlmsg_datalen(&answer) < int{sizeof(nlmsgerr)}) return;
  const int error = -static_cast<const nlmsgerr*>(nlmsg_data(&answer))->error;
  if (error == ENOMEM || error == ENOBUFS) throw base::SystemError("the kernel refuses", error);
}

std::vector<int> LinksOf(nlmsghdr* answer) {
  std::vector<int> links;
  rtnl_route* parsed = nullptr;
  CheckRefusal(*answer);
  if (answer->nlmsg_type != RTM_NEWROUTE) return links;
  CheckNetlink(rtnl_route_parse(answer, &parsed), "read the kernel's answer");
  const Netlink<rtnl_route> route(parsed);
  if (rtnl_route_get_type(route.get()) != RTN_UNICAST) return links;
  rtnl_route_foreach_nexthop(
      route.get(),
      [](rtnl_nexthop* hop, void* found) {
        static_cast<std::vector<int>*>(found)->push_back(rtnl_route_nh_get_ifindex(hop));
      },
      &links);
  return links;
}

class NetlinkRouteQuery final : public RouteQuery {
 public:
  int fd() const override { return nl_socket_get_fd(events_.get()); }

  void Arm() override {
    // Changes may come faster than they are read: what is left counts as a new one.
    constexpr int kMaxEvents = 64;
    char byte = 0;
    for (int i = 0; i < kMaxEvents; ++i) {
      if (recv(fd(), &byte, sizeof(byte), MSG_DONTWAIT | MSG_TRUNC) < 0) break;
    }
  }

  std::vector<int> Find(VrfIfindex vrf, nettypes::IPv4Addr address) override {
    const Netlink<nl_msg> request = MakeRequest(vrf, address);
    CheckNetlink(nl_send_auto(socket_.get(), request.get()), "ask the kernel");
    for (;;) {
      sockaddr_nl sender{};
      unsigned char* received = nullptr;
      const int size = nl_recv(socket_.get(), &sender, &received, nullptr);
      const Netlink<unsigned char> bytes(received);
      CheckNetlink(size, "read the kernel's answer");
      auto* const answer = reinterpret_cast<nlmsghdr*>(received);
      if (size == 0 || nlmsg_ok(answer, size) == 0) throw std::runtime_error("no answer came");
      // Else it is the late answer to another question.
      if (answer->nlmsg_seq == nlmsg_hdr(request.get())->nlmsg_seq) return LinksOf(answer);
    }
  }

 private:
  Netlink<nl_sock> events_ = OpenEventSocket();
  Netlink<nl_sock> socket_ = OpenNetlinkSocket(kAsk);
};

}  // namespace

std::unique_ptr<RouteQuery> OpenRouteQuery() { return std::make_unique<NetlinkRouteQuery>(); }

}  // namespace dhcp_manager
