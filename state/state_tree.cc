#include "state/state_tree.h"

#include <memory>
#include <stdexcept>
#include <string>

#include "protocol/control/outcome.h"
#include "protocol/control/text.h"

namespace state {
namespace {

namespace control = dhcp_relay::control;

struct TreeDeleter {
  void operator()(lyd_node* tree) const { lyd_free_all(tree); }
};

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

  template <typename Fate, typename Fates>
  void FatesOf(lyd_node* parent, std::uint64_t received, const Fates& outcomes) const {
    Leaf(parent, "received", received);
    for (int i = 0; i < outcomes.size(); ++i) {
      Leaf(parent, Name(static_cast<Fate>(i)).c_str(), std::uint64_t{outcomes.Get(i)});
    }
  }

 private:
  static void Check(LY_ERR result, const char* name) {
    if (result == LY_SUCCESS) return;
    throw std::runtime_error(std::string("cannot write ") + name + " of " + kStateModule);
  }

  const lys_module* module_;
};

void WriteServer(const Writer& writer, lyd_node* parent, const control::ServerState& server) {
  lyd_node* const entry = writer.Entry(parent, "server", control::AddressText(server.address()));
  writer.Leaf(entry, "sent", server.sent());
  writer.Leaf(entry, "failed", server.failed());
  writer.Leaf(entry, "replies", server.replies());
}

void WriteSettings(const Writer& writer, lyd_node* parent, const control::Options& options) {
  lyd_node* const settings = writer.Container(parent, "in-force");
  writer.Leaf(settings, "check", options.check());
  writer.Leaf(settings, "trusted", options.trusted());
  writer.Leaf(settings, "option", options.option());
  writer.Leaf(settings, "policy", control::PolicyText(options.policy()));
}

void WritePort(const Writer& writer, lyd_node* parent, const control::Port& port) {
  lyd_node* const entry = writer.Entry(parent, "interface", port.name());
  if (port.has_vlan()) writer.Leaf(entry, "vlan", std::uint64_t{port.vlan()});
  if (port.address() != 0) {
    writer.Leaf(entry, "address", control::AddressText(port.address()));
  }
  writer.Leaf(entry, "state", port.state());
  if (!port.link().empty()) writer.Leaf(entry, "link", port.link());
  WriteSettings(writer, entry, port.options());
  writer.FatesOf<control::RequestOutcome>(writer.Container(entry, "requests"), port.requests(),
                                          port.request_fates());
  writer.Leaf(entry, "option-left-out", port.option_left_out());
  writer.FatesOf<control::ReplyOutcome>(writer.Container(entry, "replies"), port.replies(),
                                        port.reply_fates());
}

}  // namespace

lyd_node* MakeStateTree(const ly_ctx* context, const control::Status& status,
                        const dhcp_relay::control::RelayState& relaying) {
  const Writer writer(context);
  std::unique_ptr<lyd_node, TreeDeleter> tree(writer.Container(nullptr, "dhcp-relay-state"));
  writer.Leaf(tree.get(), "connected", status.connected());
  writer.Leaf(tree.get(), "in-sync", status.in_sync());
  writer.Leaf(tree.get(), "calls", std::uint64_t{status.calls()});
  writer.Leaf(tree.get(), "dumps", std::uint64_t{status.dumps()});
  // The ports come in the order of the instances.
  auto port = relaying.ports.begin();
  for (const control::Service& service : relaying.services) {
    lyd_node* const instance = writer.Entry(tree.get(), "instance", service.instance());
    if (!service.vrf_device().empty()) writer.Leaf(instance, "vrf-device", service.vrf_device());
    writer.Leaf(instance, "vrf-missing", service.vrf_missing());
    for (const control::ServerState& server : service.servers()) {
      WriteServer(writer, instance, server);
    }
    for (; port != relaying.ports.end() && port->instance() == service.instance(); ++port) {
      WritePort(writer, instance, *port);
    }
  }
  writer.FatesOf<control::UnmatchedOutcome>(writer.Container(tree.get(), "other"),
                                            relaying.unmatched.received(),
                                            relaying.unmatched.fates());
  return tree.release();
}

}  // namespace state
