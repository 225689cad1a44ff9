// A UDP socket that gives the kernel a run of datagrams of one size to one server in one piece
// (UDP_SEGMENT): they go through the network stack together, and are parted at its end.

#ifndef DHCP_MANAGER_DATAPATH_SEGMENTING_SOCKET_H_
#define DHCP_MANAGER_DATAPATH_SEGMENTING_SOCKET_H_

#include <sys/socket.h>

#include <cstddef>
#include <span>

#include "base/descriptor.h"
#include "dhcp_manager/datapath/batch_socket.h"

namespace dhcp_manager {

class SegmentingSocket final : public KernelSocket {
 public:
  explicit SegmentingSocket(base::Descriptor descriptor);

  // REQUIRES: each message has one vector; those of a run lie one behind the other, or are sent
  // one by one.
  std::size_t Send(std::span<mmsghdr> messages) override;

 private:
  bool supported_;  // since Linux 4.18
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_DATAPATH_SEGMENTING_SOCKET_H_
