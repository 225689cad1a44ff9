// What the kernel reports of sockets that the test opens.

#include "dhcp_manager/kernel/udp_sockets.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace {

using base::Descriptor;
using dhcp_manager::UdpSocket;
using nettypes::IPv4Addr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const IPv4Addr kLoopback = IPv4Addr::from_host_order(INADDR_LOOPBACK);

std::uint32_t InodeOf(const Descriptor& fd) {
  struct stat status{};
  EXPECT_EQ(fstat(fd.get(), &status), 0);
  return static_cast<std::uint32_t>(status.st_ino);
}

class UdpSocketsTest : public ::testing::Test {
 protected:
  static Descriptor Make(int family) {
    return Descriptor(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  }
  static sockaddr_in Address(IPv4Addr ip, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr = ip.to_in_addr();
    address.sin_port = htons(port);
    return address;
  }
  template <typename Address>
  static void Bind(const Descriptor& fd, const Address& address) {
    ASSERT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  static std::uint16_t PortOf(const Descriptor& fd) {
    sockaddr_in6 address{};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin6_port);
  }
  // A socket of IPv6 on a free port.
  static Descriptor BoundIPv6(int only, const in6_addr& ip) {
    Descriptor fd = Make(AF_INET6);
    EXPECT_EQ(setsockopt(fd.get(), IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof(only)), 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = ip;
    Bind(fd, address);
    return fd;
  }

  std::vector<UdpSocket> Find(const Descriptor& fd) { return query_->Find(PortOf(fd)); }

  const std::unique_ptr<dhcp_manager::UdpSocketQuery> query_ = dhcp_manager::MakeUdpSocketQuery();
};

TEST_F(UdpSocketsTest, HaveTheirAddressDeviceUserAndInode) {
  const Descriptor fd = Make(AF_INET);
  ASSERT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_BINDTODEVICE, "lo", 3), 0);
  Bind(fd, Address(kLoopback, 0));
  EXPECT_THAT(Find(fd), ElementsAre(UdpSocket{.address = kLoopback,
                                              .peer = {},
                                              .ipv6 = false,
                                              .device = static_cast<int>(if_nametoindex("lo")),
                                              .user = getuid(),
                                              .inode = InodeOf(fd)}));
}

TEST_F(UdpSocketsTest, OfEveryAddressAndDeviceHaveNone) {
  const Descriptor fd = Make(AF_INET);
  Bind(fd, Address({}, 0));
  const auto found = Find(fd);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_TRUE(found[0].address.is_unspecified());
  EXPECT_EQ(found[0].device, 0);
}

TEST_F(UdpSocketsTest, ThatHearAPeerHaveIt) {
  const Descriptor fd = Make(AF_INET);
  Bind(fd, Address(kLoopback, 0));
  const sockaddr_in peer = Address(kLoopback, 9);
  ASSERT_EQ(connect(fd.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)), 0);
  const auto found = Find(fd);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].peer, kLoopback);
}

TEST_F(UdpSocketsTest, OfAnotherPortAreLeftOut) {
  const Descriptor fd = Make(AF_INET);
  Bind(fd, Address(kLoopback, 0));
  const std::uint16_t port = PortOf(fd);
  const Descriptor other = Make(AF_INET);
  Bind(other, Address(kLoopback, 0));
  const auto found = query_->Find(port);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].inode, InodeOf(fd));
}

TEST_F(UdpSocketsTest, OfIPv6AreThereAsFarAsTheyReceiveIPv4) {
  const Descriptor both = BoundIPv6(0, in6addr_any);
  const auto found = Find(both);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_TRUE(found[0].ipv6);
  EXPECT_TRUE(found[0].address.is_unspecified());
  EXPECT_THAT(Find(BoundIPv6(1, in6addr_any)), IsEmpty());
  EXPECT_THAT(Find(BoundIPv6(0, in6addr_loopback)), IsEmpty());
  in6_addr mapped{};
  ASSERT_EQ(inet_pton(AF_INET6, "::ffff:127.0.0.1", &mapped), 1);
  const Descriptor fd = BoundIPv6(0, mapped);
  const auto of_address = Find(fd);
  ASSERT_EQ(of_address.size(), 1U);
  EXPECT_EQ(of_address[0].address, kLoopback);
}

TEST_F(UdpSocketsTest, AreAllThereHoweverMany) {
  constexpr std::size_t kMany = 500;
  const Descriptor first = Make(AF_INET);
  const auto share = [](const Descriptor& fd) {
    constexpr int kOn = 1;
    EXPECT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof(kOn)), 0);
  };
  share(first);
  Bind(first, Address(kLoopback, 0));
  std::vector<Descriptor> more;
  for (std::size_t i = 1; i < kMany; ++i) {
    share(more.emplace_back(Make(AF_INET)));
    Bind(more.back(), Address(kLoopback, PortOf(first)));
  }
  EXPECT_EQ(Find(first).size(), kMany);
  EXPECT_EQ(Find(first).size(), kMany);
}

}  // namespace
