#include "state/state_tree.h"

#include <cstdint>
#include <stdexcept>
#include <string>

#include "protocol/control/address_text.h"
#include "protocol/control/outcome_counts.h"

namespace state {
namespace {

namespace control = dhcp_relay::control;

class Writer {
 public:
  explicit Writer(const ly_ctx* context)
      : module_(ly_ctx_get_module_implemented(context, kStateModule)) {
    if (module_ == nullptr) throw std::runtime_error(std::string("no module ") + kStateModule);
  }

  lyd_node* Container(lyd_node* parent, const char* name) const {
    lyd_node* node = nullptr;
    Check(lyd_new_inner(parent, module_, name, 0, &node), name);
    return node;
  }

  lyd_node* Entry(lyd_node* parent, const char* name, const std::string& key) const {
    lyd_node* node = nullptr;
    Check(lyd_new_list(parent, module_, name, 0, &node, key.c_str()), name);
    return node;
  }

  // Of a list without keys.
  lyd_node* Entry(lyd_node* parent, const char* name) const {
    lyd_node* node = nullptr;
    Check(lyd_new_list(parent, module_, name, 0, &node), name);
    return node;
  }

  void Leaf(lyd_node* parent, const char* name, const std::string& value) const {
    Check(lyd_new_term(parent, module_, name, value.c_str(), 0, nullptr), name);
  }
  void Leaf(lyd_node* parent, const char* name, const char* value) const {
    Leaf(parent, name, std::string(value));
  }
  void Leaf(lyd_node* parent, const char* name, bool value) const {
    Leaf(parent, name, value ? "true" : "false");
  }
  void Leaf(lyd_node* parent, const char* name, std::uint64_t value) const {
    Leaf(parent, name, std::to_string(value));
  }

  bool HasLeaf(const lyd_node* parent, const std::string& name) const {
    return lys_find_child(parent->schema, module_, name.c_str(), name.size(), LYS_LEAF, 0) !=
           nullptr;
  }

 private:
  static void Check(LY_ERR result, const char* name) {
    if (result == LY_SUCCESS) return;
    throw std::runtime_error(std::string("cannot write ") + name + " of " + kStateModule);
  }

  const lys_module* module_;
};

void WriteSockets(const Writer& writer, lyd_node* parent, const control::Status& status) {
  for (const control::MissingSocket& socket : status.missing_sockets()) {
    lyd_node* const entry = writer.Entry(parent, "missing-socket");
    if (!socket.vrf_device().empty()) writer.Leaf(entry, "vrf-device", socket.vrf_device());
    writer.Leaf(entry, "reason", socket.reason());
  }
  for (const control::CompetingSocket& socket : status.competing_sockets()) {
    lyd_node* const entry = writer.Entry(parent, "competing-socket");
    if (!socket.vrf_device().empty()) writer.Leaf(entry, "vrf-device", socket.vrf_device());
    if (socket.address() != 0) {
      writer.Leaf(entry, "address", control::AddressText(socket.address()));
    }
    writer.Leaf(entry, "user", std::uint64_t{socket.user()});
    writer.Leaf(entry, "inode", std::uint64_t{socket.inode()});
  }
}

void WriteStatus(const Writer& writer, lyd_node* parent, const control::Status& status) {
  writer.Leaf(parent, "connected", status.connected());
  writer.Leaf(parent, "in-sync", status.in_sync());
  writer.Leaf(parent, "calls", std::uint64_t{status.calls()});
  writer.Leaf(parent, "dumps", std::uint64_t{status.dumps()});
  writer.Leaf(parent, "journal-dropped", std::uint64_t{status.journal_dropped()});
  WriteSockets(writer, parent, status);
}

void WriteKernelDrops(const Writer& writer, lyd_node* parent, const control::KernelDrops& drops) {
  writer.Leaf(parent, "requests", std::uint64_t{drops.requests()});
  if (drops.has_replies()) writer.Leaf(parent, "replies", std::uint64_t{drops.replies()});
  writer.Leaf(parent, "link-events", std::uint64_t{drops.link_events()});
}

void WriteOutcomes(const Writer& writer, lyd_node* parent, std::uint64_t received,
                   const control::OutcomeCounts& outcomes) {
  writer.Leaf(parent, "received", received);
  for (const control::OutcomeCount& outcome : outcomes) {
    if (!writer.HasLeaf(parent, outcome.outcome())) continue;
    writer.Leaf(parent, outcome.outcome().c_str(), std::uint64_t{outcome.count()});
  }
}

void WriteServer(const Writer& writer, lyd_node* parent, const control::Server& server) {
  lyd_node* const entry = writer.Entry(parent, "server", control::AddressText(server.address()));
  writer.Leaf(entry, "sent", std::uint64_t{server.sent()});
  writer.Leaf(entry, "failed", std::uint64_t{server.failed()});
  writer.Leaf(entry, "replies", std::uint64_t{server.replies()});
}

lyd_node* WriteInstance(const Writer& writer, lyd_node* parent,
                        const control::RelayInstance& instance) {
  lyd_node* const entry = writer.Entry(parent, "instance", instance.name());
  if (!instance.vrf_device().empty()) writer.Leaf(entry, "vrf-device", instance.vrf_device());
  writer.Leaf(entry, "vrf-missing", instance.vrf_missing());
  for (const control::Server& server : instance.servers()) WriteServer(writer, entry, server);
  return entry;
}

void WriteSettings(const Writer& writer, lyd_node* parent, const control::Settings& settings) {
  lyd_node* const container = writer.Container(parent, "in-force");
  writer.Leaf(container, "check", settings.check());
  writer.Leaf(container, "trusted", settings.trusted());
  writer.Leaf(container, "option", settings.option());
  writer.Leaf(container, "policy", settings.policy());
}

void WriteInterface(const Writer& writer, lyd_node* parent,
                    const control::RelayInterface& interface) {
  lyd_node* const entry = writer.Entry(parent, "interface", interface.name());
  if (interface.has_vlan()) writer.Leaf(entry, "vlan", std::uint64_t{interface.vlan()});
  if (interface.address() != 0) {
    writer.Leaf(entry, "address", control::AddressText(interface.address()));
  }
  writer.Leaf(entry, "state", interface.state());
  if (!interface.reason().empty()) writer.Leaf(entry, "reason", interface.reason());
  if (!interface.link().empty()) writer.Leaf(entry, "link", interface.link());
  WriteSettings(writer, entry, interface.settings());
  WriteOutcomes(writer, writer.Container(entry, "requests"), interface.requests(),
                interface.request_outcomes());
  writer.Leaf(entry, "option-left-out", std::uint64_t{interface.option_left_out()});
  WriteOutcomes(writer, writer.Container(entry, "replies"), interface.replies(),
                interface.reply_outcomes());
}

}  // namespace

Tree MakeStateTree(const ly_ctx* context, const control::Status& status,
                   const control::RelayState& relay) {
  const Writer writer(context);
  Tree tree(writer.Container(nullptr, "dhcp-relay-state"));
  WriteStatus(writer, tree.get(), status);
  WriteKernelDrops(writer, writer.Container(tree.get(), "kernel-drops"), relay.kernel_drops);
  // The interfaces come in the order of the instances.
  auto interface = relay.interfaces.begin();
  for (const control::RelayInstance& instance : relay.instances) {
    lyd_node* const entry = WriteInstance(writer, tree.get(), instance);
    for (; interface != relay.interfaces.end() && interface->instance() == instance.name();
         ++interface) {
      WriteInterface(writer, entry, *interface);
    }
  }
  WriteOutcomes(writer, writer.Container(tree.get(), "other"), relay.unmatched.received(),
                relay.unmatched.outcomes());
  return tree;
}

}  // namespace state
