#include "dhcp_manager/control/table_writer.h"

#include "base/packet_socket.h"
#include "protocol/control/control.pb.h"

namespace dhcp_manager {
namespace {

namespace control = dhcp_relay::control;

// A reply is closed at this size, in bytes; the one item more that it may hold still fits a packet.
constexpr std::size_t kReplySize = base::kMaxPacketSize / 2;

// Bytes that an item takes besides its own.
constexpr std::size_t kItemOverhead = 8;

void Fill(const Settings& settings, control::Options& message) {
  if (settings.check) message.set_check(*settings.check);
  if (settings.trusted) message.set_trusted(*settings.trusted);
  if (settings.option) message.set_option(*settings.option);
  if (settings.policy) message.set_policy(static_cast<std::uint32_t>(*settings.policy));
}

class Writer {
 public:
  void Add(const std::string& name, const Instance& instance) {
    StartInstance(name);
    Fill(instance.settings, *instance_->mutable_options());
    if (instance.vrf) instance_->set_vrf(*instance.vrf);
    size_ += instance_->ByteSizeLong() + kItemOverhead;
    for (const auto& server : instance.servers) {
      MakeRoom(name);
      instance_->add_servers((server.host_order()));
      size_ += sizeof(std::uint32_t);
    }
    for (const auto& [if_name, interface] : instance.interfaces) {
      MakeRoom(name);
      control::Interface& message = *instance_->add_interfaces();
      message.set_name(if_name);
      if (interface.vlan) message.set_vlan(*interface.vlan);
      if (interface.address) message.set_address((interface.address->host_order()));
      size_ += message.ByteSizeLong() + kItemOverhead;
    }
    for (const auto& [if_name, options] : instance.overrides) {
      MakeRoom(name);
      control::IfOption& message = *instance_->add_if_options();
      message.set_name(if_name);
      Fill(options, *message.mutable_options());
      size_ += message.ByteSizeLong() + kItemOverhead;
    }
  }

  std::deque<std::string> Finish() {
    reply_.set_last(true);
    Close();
    return std::move(replies_);
  }

 private:
  void StartInstance(const std::string& name) {
    if (size_ >= kReplySize) Close();
    instance_ = reply_.add_instances();
    instance_->set_name(name);
  }

  void MakeRoom(const std::string& name) {
    if (size_ < kReplySize) return;
    StartInstance(name);
    size_ += instance_->ByteSizeLong() + kItemOverhead;
  }

  void Close() {
    replies_.push_back(reply_.SerializeAsString());
    reply_.Clear();
    size_ = 0;
  }

  std::deque<std::string> replies_;
  control::Reply reply_;
  control::Instance* instance_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace

std::deque<std::string> WriteTable(const RelayTable& table) {
  Writer writer;
  for (const auto& [name, instance] : table.instances()) writer.Add(name, instance);
  return writer.Finish();
}

}  // namespace dhcp_manager
