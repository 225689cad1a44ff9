// A socket that follows a script: what is received from it, what it accepts, and what was sent.

#ifndef TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_SOCKET_H_
#define TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_SOCKET_H_

#include <linux/if_packet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include <nettypes/ipv4_addr.h>

#include "dhcp_manager/datapath/batch_socket.h"

namespace tests {

using Bytes = std::vector<std::uint8_t>;

inline nettypes::IPv4Addr Ip(const std::string& text) { return *nettypes::IPv4Addr::parse(text); }

// The link that leads to the servers and serves no clients.
inline constexpr int kUplink = 8;

class ScriptedSocket final : public dhcp_manager::BatchSocket {
 public:
  struct Datagram {
    Bytes bytes;
    nettypes::IPv4Addr from;
    bool truncated = false;
    int link = kUplink;  // it came in through; 0 for a socket that does not tell
  };
  struct Sent {
    Bytes bytes;
    sockaddr_in server{};  // when it went to an address of that family
    sockaddr_ll client{};
  };

  std::deque<Datagram> incoming;
  std::set<std::size_t> refused;         // the numbers of the packets that are refused, from 0
  std::size_t accepted_at_once = 1'000;  // in one call of Send
  std::vector<Sent> sent;
  std::size_t sends = 0;     // calls of Send
  std::size_t receives = 0;  // calls of Receive
  int descriptor = -1;

  int fd() const override { return descriptor; }

  std::size_t Receive(std::span<mmsghdr> messages) override {
    ++receives;
    std::size_t count = 0;
    for (; count < messages.size() && !incoming.empty(); ++count) {
      Fill(incoming.front(), messages[count]);
      incoming.pop_front();
    }
    return count;
  }

  std::size_t Send(std::span<mmsghdr> messages) override {
    ++sends;
    std::size_t count = 0;
    for (; count < std::min(accepted_at_once, messages.size()); ++count) {
      if (refused.contains(number_)) break;
      ++number_;
      sent.push_back(Read(messages[count].msg_hdr));
    }
    if (count == 0) ++number_;
    return count;
  }

 private:
  static void Fill(const Datagram& datagram, mmsghdr& message) {
    const iovec& vector = *message.msg_hdr.msg_iov;
    std::copy(datagram.bytes.begin(), datagram.bytes.end(),
              static_cast<std::uint8_t*>(vector.iov_base));
    message.msg_len = static_cast<unsigned>(datagram.bytes.size());
    message.msg_hdr.msg_flags = datagram.truncated ? MSG_TRUNC : 0;
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_addr = datagram.from.to_in_addr();
    std::memcpy(message.msg_hdr.msg_name, &from, sizeof(from));
    FillLink(datagram.link, message.msg_hdr);
  }

  static void FillLink(int link, msghdr& header) {
    if (link == 0) {
      header.msg_controllen = 0;
      return;
    }
    cmsghdr* const control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = IPPROTO_IP;
    control->cmsg_type = IP_PKTINFO;
    control->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_ifindex = link;
    std::memcpy(CMSG_DATA(control), &info, sizeof(info));
    header.msg_controllen = CMSG_SPACE(sizeof(info));
  }

  static Sent Read(const msghdr& header) {
    Sent packet;
    const auto* const data = static_cast<const std::uint8_t*>(header.msg_iov->iov_base);
    packet.bytes.assign(data, data + header.msg_iov->iov_len);
    if (header.msg_namelen == sizeof(sockaddr_in)) {
      std::memcpy(&packet.server, header.msg_name, sizeof(sockaddr_in));
    } else {
      std::memcpy(&packet.client, header.msg_name, sizeof(sockaddr_ll));
    }
    return packet;
  }

  std::size_t number_ = 0;
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_DATAPATH_SCRIPTED_SOCKET_H_
