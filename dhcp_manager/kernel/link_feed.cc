#include "dhcp_manager/kernel/link_feed.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>

#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/system_error.h"

namespace dhcp_manager {
namespace {

// Far cheaper than events that are looked at.
constexpr int kDrainedDatagrams = 256;

bool TellsAddress(const nlmsghdr& message) {
  return message.nlmsg_type == RTM_NEWADDR || message.nlmsg_type == RTM_DELADDR;
}

// The error number that the message begins with, as that of a refusal and of a dump's end do.
int ErrorOf(const nlmsghdr& message) {
  int error = 0;
  if (nlmsg_datalen(&message) < static_cast<int>(sizeof(error))) return 0;
  std::memcpy(&error, nlmsg_data(&message), sizeof(error));
  return -error;
}

void CheckAnswer(const nlmsghdr& message) {
  const bool ends = message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE;
  const int error = ends ? ErrorOf(message) : 0;
  if (error != 0) {
    throw std::runtime_error(std::string("the kernel does not list its interfaces: ") +
                             std::strerror(error));
  }
}

}  // namespace

LinkFeed::LinkFeed(std::unique_ptr<LinkSocket> socket, VrfDevices vrf_devices)
    : socket_(std::move(socket)), vrf_devices_(std::move(vrf_devices)) {}

void LinkFeed::Restart() { state_ = State::kDraining; }

// After an overrun the kernel drops events until nothing waits any more, so a dump that was
// requested before that would miss some.
void LinkFeed::TakePortion(Links& links) {
  if (state_ == State::kDraining) {
    for (int i = 0; i < kDrainedDatagrams; ++i) {
      if (socket_->Receive().empty()) return RequestLinks();
    }
    return;
  }
  const int datagrams = live() ? kEvents : kDumpDatagrams;
  for (int i = 0; i < datagrams && TakeDatagram(links); ++i) {
  }
}

void LinkFeed::RequestLinks() {
  next_ = {};
  interrupted_ = answered_ = false;
  request_ = socket_->RequestDump(LinkSocket::Dump::kLinks);
  state_ = State::kLinks;
}

bool LinkFeed::TakeDatagram(Links& links) {
  const auto datagram = socket_->Receive();
  if (datagram.empty()) return false;
  int left = static_cast<int>(datagram.size());
  // libnl's functions take no const, and only read.
  auto* message = reinterpret_cast<nlmsghdr*>(const_cast<std::byte*>(datagram.data()));
  for (; nlmsg_ok(message, left) != 0; message = nlmsg_next(message, &left)) {
    TakeMessage(*message, links);
  }
  return true;
}

void LinkFeed::TakeMessage(const nlmsghdr& message, Links& links) {
  if (message.nlmsg_type == NLMSG_OVERRUN) throw Overrun();
  const LinkSocket::Request mark{.port = message.nlmsg_pid, .sequence = message.nlmsg_seq};
  if (!live() && mark == request_) {
    TakeAnswer(message, links);
  } else {
    TakeEvent(message, live() ? links : next_);
  }
}

void LinkFeed::TakeAnswer(const nlmsghdr& message, Links& links) {
  CheckAnswer(message);
  answered_ = true;
  interrupted_ = interrupted_ || (message.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
  if (message.nlmsg_type == NLMSG_DONE) {
    FinishDump(links);
  } else {
    ApplyMessage(message, vrf_devices_, next_);
  }
}

// What is told of addresses before the answer about them begins is in the answer, too: applied, it
// would change their order.
void LinkFeed::TakeEvent(const nlmsghdr& message, Links& links) {
  const bool known = live() || (state_ == State::kAddresses && answered_);
  if (known || !TellsAddress(message)) ApplyMessage(message, vrf_devices_, links);
}

void LinkFeed::FinishDump(Links& links) {
  if (interrupted_) {
    throw std::runtime_error("interfaces or addresses changed while the kernel listed them");
  }
  if (state_ == State::kLinks) {
    answered_ = false;
    request_ = socket_->RequestDump(LinkSocket::Dump::kAddresses);
    state_ = State::kAddresses;
    return;
  }
  links.ReplaceBy(next_);
  next_ = {};
  state_ = State::kLive;
}

}  // namespace dhcp_manager
