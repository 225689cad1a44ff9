#include "dhcp_manager/datapath/competing_sockets.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "dhcp_manager/datapath/headers.h"

namespace dhcp_manager {
namespace {

constexpr char kHearsVrfs[] = "/proc/sys/net/ipv4/udp_l3mdev_accept";

// A kernel without VRFs has no such setting.
bool ReadHearsVrfs() { return std::ifstream(kHearsVrfs).get() == '1'; }

// What the questions below are about: a socket, and a VRF whose packets it hears.
struct Contest {
  const UdpSocket& socket;
  VrfIfindex vrf;
  const Forwarding& forwarding;
  RouteLookup& routes;
};

template <typename Predicate>
bool AnyServer(const Contest& contest, Predicate predicate) {
  return std::ranges::any_of(contest.forwarding.instances(), [&](const RelayInstance& instance) {
    return instance.vrf == contest.vrf && std::ranges::any_of(instance.servers, predicate);
  });
}

// Replies come in through the device: servers are behind it.
bool IsOnTheWay(const Contest& contest) {
  return AnyServer(contest, [&](nettypes::IPv4Addr server) {
    return contest.routes.LeadsTo(contest.vrf, server, contest.socket.device);
  });
}

bool HearsItsPeerOnly(const Contest& contest) {
  const UdpSocket& socket = contest.socket;
  return !socket.peer.is_unspecified() &&
         !AnyServer(contest, [&](nettypes::IPv4Addr server) { return server == socket.peer; });
}

// Any socket for the address is better than the relay's, which is for every address.
bool TakesByAddress(const Contest& contest) {
  const UdpSocket& socket = contest.socket;
  if (contest.forwarding.FindByAddress(contest.vrf, socket.address) == nullptr) return false;
  return socket.device == 0 || socket.device == contest.vrf || IsOnTheWay(contest);
}

// Of two that fit as well, the one that was bound later takes the packet; IPv6 comes last.
bool TakesByDevice(const Contest& contest) {
  const UdpSocket& socket = contest.socket;
  if (socket.device == contest.vrf) return !socket.ipv6;
  if (socket.device == 0 || !IsOnTheWay(contest)) return false;
  return contest.vrf == kDefaultVrf || !socket.ipv6;
}

bool TakesReplies(const Contest& contest) {
  if (HearsItsPeerOnly(contest)) return false;
  return contest.socket.address.is_unspecified() ? TakesByDevice(contest) : TakesByAddress(contest);
}

// The VRFs whose packets a socket hears.
std::vector<VrfIfindex> VrfsOf(const UdpSocket& socket, const VrfInodes& own, const Links& links,
                               bool hears_vrfs) {
  if (socket.device != 0) {
    const Link* link = links.Find(socket.device);
    return {link == nullptr ? kDefaultVrf : links.VrfOf(*link)};
  }
  if (!hears_vrfs) return {kDefaultVrf};
  std::vector<VrfIfindex> all;
  for (const auto& [vrf, inode] : own) all.push_back(vrf);
  return all;
}

std::string DeviceOf(const Forwarding& forwarding, VrfIfindex vrf) {
  const auto device = forwarding.vrfs().find(vrf);
  return device == forwarding.vrfs().end() ? "" : device->second;
}

std::string TextOf(const CompetingSocket& socket) {
  const std::string bound =
      socket.address.is_unspecified() ? "UDP port 67" : socket.address.to_string() + " port 67";
  return "a process of user " + std::to_string(socket.user) + " shares " + bound + " in " +
         VrfText(socket.vrf_device) + " and takes replies of servers";
}

}  // namespace

std::vector<CompetingSocket> SelectCompeting(const std::vector<UdpSocket>& found,
                                             const VrfInodes& own, const Links& links,
                                             const Forwarding& forwarding, RouteLookup& routes,
                                             bool hears_vrfs) {
  std::set<std::uint32_t> own_inodes;
  for (const auto& [vrf, inode] : own) own_inodes.insert(inode);
  std::vector<CompetingSocket> competing;
  for (const UdpSocket& socket : found) {
    if (own_inodes.contains(socket.inode)) continue;
    for (const VrfIfindex vrf : VrfsOf(socket, own, links, hears_vrfs)) {
      if (!own.contains(vrf) || !TakesReplies({socket, vrf, forwarding, routes})) continue;
      competing.push_back({.vrf_device = DeviceOf(forwarding, vrf),
                           .address = socket.address,
                           .user = socket.user,
                           .inode = socket.inode});
    }
  }
  return competing;
}

void CompetingSockets::Look(const VrfInodes& own, const Links& links, const Forwarding& forwarding,
                            Clock::time_point now) {
  looked_ = now;
  try {
    found_ =
        SelectCompeting(query_.Find(kServerPort), own, links, forwarding, routes_, ReadHearsVrfs());
    error_.clear();
  } catch (const std::runtime_error& error) {
    found_.clear();
    if (error_ != error.what()) report_(error.what());
    error_ = error.what();
  }
  ReportNew();
}

void CompetingSockets::ReportNew() {
  std::set<std::uint32_t> inodes;
  for (const CompetingSocket& socket : found_) {
    const bool is_new = inodes.insert(socket.inode).second && !reported_.contains(socket.inode);
    if (is_new) report_(TextOf(socket));
  }
  reported_ = std::move(inodes);
}

}  // namespace dhcp_manager
