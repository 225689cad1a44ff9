#include "ctl/text.h"

#include <array>

#include <nettypes/ipv4_addr.h>

namespace relayctl {
namespace {

namespace control = dhcp_relay::control;
using nlohmann::ordered_json;

const char* Switch(bool is_set, bool value) {
  if (!is_set) return "-";
  return value ? "on" : "off";
}

}  // namespace

std::string OptionsText(const control::Options& options) {
  std::string text = "check ";
  text.append(Switch(options.has_check(), options.check()));
  text.append(", trusted ").append(Switch(options.has_trusted(), options.trusted()));
  text.append(", option ").append(Switch(options.has_option(), options.option()));
  text.append(", policy ")
      .append(options.has_policy() ? control::PolicyText(options.policy()) : "-");
  return text;
}

void AddOptions(const control::Options& options, ordered_json& object) {
  object["check"] = options.has_check() ? ordered_json(options.check()) : nullptr;
  object["trusted"] = options.has_trusted() ? ordered_json(options.trusted()) : nullptr;
  object["option"] = options.has_option() ? ordered_json(options.option()) : nullptr;
  object["policy"] =
      options.has_policy() ? ordered_json(control::PolicyText(options.policy())) : nullptr;
}

std::string Dump(const ordered_json& document) {
  return document.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace relayctl
