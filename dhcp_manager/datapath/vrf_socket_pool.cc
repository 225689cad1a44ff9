#include "dhcp_manager/datapath/vrf_socket_pool.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <exception>
#include <limits>
#include <utility>

#include "base/service/log.h"
#include "base/system_error.h"
#include "dhcp_manager/datapath/socket_option.h"

namespace dhcp_manager {
namespace {

using base::Descriptor;

constexpr std::array kPassNothing{sock_filter{.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = 0}};

// The index of a device that never exists, on which nothing is received.
constexpr int kNowhere = std::numeric_limits<int>::max();
constexpr int kNoDevice = 0;

void BindToDevice(const Descriptor& socket, int device) {
  SetOption(socket.get(), SOL_SOCKET, SO_BINDTOIFINDEX, device, "choose the device of a socket");
}

int IndexOf(const std::string& device) {
  if (device.empty()) return kNoDevice;
  const unsigned index = if_nametoindex(device.c_str());
  if (index == 0) base::ThrowSystemError("cannot bind to the VRF device " + device);
  return static_cast<int>(index);
}

// A socket without a device would get the port only where no program has it on any device, in
// whatever VRF. So that of the default VRF gets it on a device that does not exist.
void BindToPort(const Descriptor& socket, const std::string& device, std::uint16_t port) {
  constexpr int kOn = 1;
  // The sockets of several VRFs share the port.
  SetOption(socket.get(), SOL_SOCKET, SO_REUSEADDR, kOn, "share the port of servers");
  BindToDevice(socket, device.empty() ? kNowhere : IndexOf(device));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    base::ThrowSystemError("cannot listen to servers on UDP port " + std::to_string(port));
  }
}

// Without these bytes a datagram is taken out of the queue, too.
void Drain(const Descriptor& socket) {
  char byte = 0;
  while (recv(socket.get(), &byte, sizeof(byte), MSG_DONTWAIT) >= 0) {
  }
}

Descriptor TakeLast(std::vector<Descriptor>& sockets) {
  Descriptor socket = std::move(sockets.back());
  sockets.pop_back();
  return socket;
}

}  // namespace

VrfSocketPool::VrfSocketPool(std::size_t count, std::uint16_t port, Make make)
    : port_(port), make_(std::move(make)) {
  // A socket that cannot be made now is made when it is needed, and the failure reported then.
  for (std::size_t i = 0; i < count; ++i) {
    Descriptor socket = make_();
    if (!socket) return;
    prepared_.insert(socket.get());
    unbound_.push_back(std::move(socket));
  }
}

Descriptor VrfSocketPool::Take(const std::string& device) {
  return bound_.empty() ? TakeUnbound(device) : TakeBound(device);
}

// A socket that moves to another device is not asked whether the port is free there, so that
// another one asks in its place.
Descriptor VrfSocketPool::TakeBound(const std::string& device) {
  const Descriptor question(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!question) base::ThrowSystemError("cannot open a UDP socket");
  BindToPort(question, device, port_);
  BindToDevice(bound_.back(), IndexOf(device));
  return TakeLast(bound_);
}

Descriptor VrfSocketPool::TakeUnbound(const std::string& device) {
  if (unbound_.empty()) {
    unbound_.push_back(make_());
    if (!unbound_.back()) {
      unbound_.pop_back();
      base::ThrowSystemError("cannot open a UDP socket");
    }
  }
  const Descriptor& socket = unbound_.back();
  AttachFilter(socket.get(), kPassNothing);
  BindToPort(socket, device, port_);
  if (device.empty()) BindToDevice(socket, kNoDevice);
  return TakeLast(unbound_);
}

void VrfSocketPool::GiveBack(Descriptor socket) noexcept {
  if (!prepared_.contains(socket.get())) return;
  try {
    AttachFilter(socket.get(), kPassNothing);
    BindToDevice(socket, kNowhere);
    Drain(socket);
    bound_.push_back(std::move(socket));
  } catch (const std::exception& error) {
    prepared_.erase(socket.get());
    base::LogError(std::string("a socket is closed, and its buffers are lost: ") + error.what());
  }
}

void VrfSocketPool::ReleasePort() {
  for (const Descriptor& socket : bound_) prepared_.erase(socket.get());
  bound_.clear();
}

}  // namespace dhcp_manager
