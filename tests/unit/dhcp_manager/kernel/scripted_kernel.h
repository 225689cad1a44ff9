// A kernel with links and addresses, as far as rtnetlink shows them: dumps in parts, events in
// their order, and the failures that a test wants.

#ifndef TESTS_UNIT_DHCP_MANAGER_KERNEL_SCRIPTED_KERNEL_H_
#define TESTS_UNIT_DHCP_MANAGER_KERNEL_SCRIPTED_KERNEL_H_

#include <sys/eventfd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "dhcp_manager/kernel/link_socket.h"
#include "dhcp_manager/kernel/links.h"
#include "tests/unit/dhcp_manager/kernel/netlink_messages.h"

namespace tests {

class ScriptedKernel {
 public:
  using Addresses = std::vector<dhcp_manager::LinkAddress>;

  // Each of these tells the socket, too.

  void SetLink(const dhcp_manager::Link& link) {
    if (!links_.contains(link.index)) ++links_changed_;
    links_[link.index] = link;
    Tell(LinkMessage(link));
  }
  void RemoveLink(int index) {
    for (const auto& address : std::exchange(addresses_[index], {})) {
      Tell(AddressMessage(address, RTM_DELADDR));
    }
    addresses_.erase(index);
    links_.erase(index);
    ++links_changed_;
    Tell(LinkGone(index));
  }
  // The kernel decides whether it is secondary, and puts it in its place; an address that is there
  // is told anew.
  void AddAddress(dhcp_manager::LinkAddress address) {
    Addresses& addresses = addresses_[address.link];
    const auto is_same = [&](const auto& other) {
      return other.address == address.address && other.prefix_length == address.prefix_length;
    };
    if (const auto same = std::ranges::find_if(addresses, is_same); same != addresses.end()) {
      return Tell(AddressMessage(*same));
    }
    address.peer = address.address;
    address.secondary = std::ranges::any_of(
        addresses, [&](const auto& other) { return SameSubnet(address, other); });
    auto place = addresses.end();
    while (!address.secondary && place != addresses.begin() &&
           (std::prev(place)->secondary || std::prev(place)->scope < address.scope)) {
      --place;
    }
    addresses.insert(place, address);
    ++addresses_changed_;
    Tell(AddressMessage(address));
  }
  // With a primary address, the others of its subnet go, or the first of them is promoted.
  void RemoveAddress(int link, std::size_t at, bool promote) {
    Addresses& addresses = addresses_.at(link);
    const auto removed = addresses.at(at);
    addresses.erase(addresses.begin() + static_cast<std::ptrdiff_t>(at));
    ++addresses_changed_;
    Tell(AddressMessage(removed, RTM_DELADDR));
    if (!removed.secondary) RemovePrimary(addresses, removed, promote);
  }

  // Lets the next Receive after what waits fail.
  template <typename Error>
  void Fail(const Error& error) {
    Put({.error = std::make_exception_ptr(error)});
  }
  // What waits is lost.
  void Overrun() {
    std::erase_if(waiting_, [](const Item& item) { return !item.of_dump; });
    waiting_.push_front({.error = std::make_exception_ptr(dhcp_manager::Overrun())});
    Wake();
  }
  void Put(const Message& message) { Put({.bytes = message.Bytes()}); }
  bool HasWaiting() const { return !waiting_.empty(); }

  const std::map<int, dhcp_manager::Link>& links() const { return links_; }
  const Addresses& AddressesOf(int link) { return addresses_[link]; }
  // As a dump shows them.
  dhcp_manager::Links Fresh() const {
    dhcp_manager::Links fresh;
    for (const auto& [index, link] : links_) fresh.SetLink(link);
    for (const auto& [index, addresses] : addresses_) {
      for (const auto& address : addresses) fresh.SetAddress(address);
    }
    return fresh;
  }

  // What the kernel was asked, and how it answers.
  int sockets_opened = 0;
  int sockets = 0;
  int dumps = 0;
  bool refuses_sockets = false;
  int refuses_dumps = 0;         // error number of the answer
  std::size_t part_size = 1000;  // links in a dump's datagram

 private:
  friend class ScriptedLinkSocket;
  struct Item {
    Datagram bytes{};
    std::exception_ptr error{};
    bool of_dump = false;
  };
  struct RunningDump {
    dhcp_manager::LinkSocket::Dump what;
    Mark mark;
    std::uint64_t seen;       // what had changed when it began
    std::deque<int> links{};  // still to be written
  };

  static bool SameSubnet(const dhcp_manager::LinkAddress& one,
                         const dhcp_manager::LinkAddress& other) {
    return one.prefix_length == other.prefix_length &&
           (one.address.host_order() ^ other.address.host_order()) >> (32 - one.prefix_length) == 0;
  }
  void RemovePrimary(Addresses& addresses, const dhcp_manager::LinkAddress& removed, bool promote) {
    for (auto entry = addresses.begin(); entry != addresses.end();) {
      if (!entry->secondary || !SameSubnet(*entry, removed)) {
        ++entry;
        continue;
      }
      const auto found = *entry;
      entry = addresses.erase(entry);
      if (promote) return Promote(addresses, found);
      Tell(AddressMessage(found, RTM_DELADDR));
    }
  }
  void Promote(Addresses& addresses, dhcp_manager::LinkAddress address) {
    address.secondary = false;
    const auto place = std::ranges::find_if(addresses, [&](const auto& other) {
      return other.secondary || other.scope < address.scope;
    });
    addresses.insert(place, address);
    Tell(AddressMessage(address));
  }

  void Tell(const Message& message) {
    if (sockets > 0) Put(message);
  }
  void Put(Item item) {
    waiting_.push_back(std::move(item));
    Wake();
  }
  // Readable, or not.
  void Wake() { eventfd_write(event_.get(), 1); }
  void Sleep() {
    eventfd_t count = 0;
    eventfd_read(event_.get(), &count);
  }

  void BeginDump(dhcp_manager::LinkSocket::Dump dump, const Mark& mark) {
    ++dumps;
    if (refuses_dumps != 0) return Put(EndMessage(NLMSG_ERROR, mark, refuses_dumps));
    dump_ = {.what = dump, .mark = mark, .seen = Changed(dump)};
    for (const auto& [index, link] : links_) dump_->links.push_back(index);
    PutPart();
  }
  // What interrupts a dump; a link that goes down does not.
  std::uint64_t Changed(dhcp_manager::LinkSocket::Dump dump) const {
    const bool of_links = dump == dhcp_manager::LinkSocket::Dump::kLinks;
    return links_changed_ + (of_links ? 0 : addresses_changed_);
  }
  // The kernel writes a part when it is asked, and the next when that has been read.
  void PutPart() {
    if (!dump_) return;
    Item part{.of_dump = true};
    for (std::size_t i = 0; i < part_size && !dump_->links.empty(); ++i) {
      WriteLink(dump_->links.front(), part.bytes);
      dump_->links.pop_front();
    }
    if (dump_->links.empty()) {
      const int flags = dump_->seen == Changed(dump_->what) ? 0 : NLM_F_DUMP_INTR;
      Append(EndMessage(NLMSG_DONE, dump_->mark, 0, flags), part.bytes);
      dump_.reset();
    }
    Put(std::move(part));
  }
  void WriteLink(int index, Datagram& bytes) {
    const auto found = links_.find(index);
    if (found == links_.end()) return;
    if (dump_->what == dhcp_manager::LinkSocket::Dump::kLinks) {
      return Append(LinkMessage(found->second, dump_->mark), bytes);
    }
    for (const auto& address : addresses_[index]) {
      Append(AddressMessage(address, RTM_NEWADDR, dump_->mark), bytes);
    }
  }
  static void Append(const Message& message, Datagram& bytes) {
    const Datagram more = message.Bytes();
    bytes.insert(bytes.end(), more.begin(), more.end());
    bytes.resize(NLMSG_ALIGN(bytes.size()));
  }

  std::map<int, dhcp_manager::Link> links_;
  std::map<int, Addresses> addresses_;  // by link, in the kernel's order
  std::deque<Item> waiting_;
  std::optional<RunningDump> dump_;
  std::uint64_t links_changed_ = 0;
  std::uint64_t addresses_changed_ = 0;
  base::Descriptor event_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

class ScriptedLinkSocket final : public dhcp_manager::LinkSocket {
 public:
  explicit ScriptedLinkSocket(ScriptedKernel& kernel) : kernel_(kernel) {
    ++kernel_.sockets_opened;
    if (kernel_.refuses_sockets) throw std::runtime_error("cannot watch the kernel's interfaces");
    ++kernel_.sockets;
    kernel_.waiting_.clear();
    kernel_.Sleep();
    kernel_.dump_.reset();
  }
  ~ScriptedLinkSocket() override { --kernel_.sockets; }

  int fd() const override { return kernel_.event_.get(); }
  Request RequestDump(Dump dump) override {
    const Request request{.port = 77, .sequence = ++sequence_};
    kernel_.BeginDump(dump, request);
    return request;
  }
  std::span<const std::byte> Receive() override {
    if (kernel_.waiting_.empty()) return {};
    received_ = std::move(kernel_.waiting_.front());
    kernel_.waiting_.pop_front();
    if (kernel_.waiting_.empty()) kernel_.Sleep();
    if (received_.error) std::rethrow_exception(received_.error);
    if (received_.of_dump) kernel_.PutPart();
    return received_.bytes;
  }

 private:
  ScriptedKernel& kernel_;
  std::uint32_t sequence_ = 0;
  ScriptedKernel::Item received_;
};

}  // namespace tests

#endif  // TESTS_UNIT_DHCP_MANAGER_KERNEL_SCRIPTED_KERNEL_H_
