// Keeps Links as the kernel has them: reads all once, then applies each event, in bounded portions.

#ifndef DHCP_MANAGER_KERNEL_LINK_FEED_H_
#define DHCP_MANAGER_KERNEL_LINK_FEED_H_

#include <cstddef>
#include <memory>
#include <span>

#include "dhcp_manager/kernel/link_messages.h"
#include "dhcp_manager/kernel/link_socket.h"
#include "dhcp_manager/kernel/links.h"

struct nlmsghdr;

namespace dhcp_manager {

class LinkFeed {
 public:
  // Events taken at once, and datagrams of a dump, which hold some 20 links each.
  static constexpr int kEvents = 16;
  static constexpr int kDumpDatagrams = 1;

  // Call Restart before anything else.
  LinkFeed(std::unique_ptr<LinkSocket> socket, VrfDevices vrf_devices);

  // Readable while something waits.
  int fd() const { return socket_->fd(); }

  // Reads all anew, after what waits. Also to be called after each exception of TakePortion but
  // std::system_error, after which the socket is of no use any more.
  void Restart();

  // Takes a portion of what waits. Until everything has been read, `links` stays as it is; then it
  // becomes that, and follows the events. Throws std::runtime_error that tells why events or the
  // reading were lost: Overrun when it was for want of room.
  void TakePortion(Links& links);

  // Whether `links` follows the events.
  bool live() const { return state_ == State::kLive; }
  // Whether the next portion is due even if nothing waits.
  bool draining() const { return state_ == State::kDraining; }

 private:
  enum class State { kDraining, kLinks, kAddresses, kLive };

  // False when nothing waits.
  bool TakeDatagram(Links& links);
  void TakeMessage(const nlmsghdr& message, Links& links);
  void TakeAnswer(const nlmsghdr& message, Links& links);
  void TakeEvent(const nlmsghdr& message, Links& links);
  void FinishDump(Links& links);
  void RequestLinks();

  const std::unique_ptr<LinkSocket> socket_;
  const VrfDevices vrf_devices_;
  State state_ = State::kDraining;
  LinkSocket::Request request_;  // of the present dump
  bool answered_ = false;        // whether its answer has begun
  bool interrupted_ = false;
  Links next_;  // what the dumps have told
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_KERNEL_LINK_FEED_H_
