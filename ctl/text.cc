#include "ctl/text.h"

#include <algorithm>

namespace relayctl {
namespace {

namespace control = dhcp_relay::control;
using nlohmann::ordered_json;

const char* Switch(bool is_set, bool value) {
  if (!is_set) return "-";
  return value ? "on" : "off";
}

std::vector<std::size_t> Widths(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  return widths;
}

}  // namespace

std::string SettingsText(const control::Settings& settings) {
  std::string text = "check ";
  text.append(Switch(settings.has_check(), settings.check()));
  text.append(", trusted ").append(Switch(settings.has_trusted(), settings.trusted()));
  text.append(", option ").append(Switch(settings.has_option(), settings.option()));
  text.append(", policy ").append(settings.has_policy() ? settings.policy() : "-");
  return text;
}

void AddSettings(const control::Settings& settings, ordered_json& object) {
  object["check"] = settings.has_check() ? ordered_json(settings.check()) : nullptr;
  object["trusted"] = settings.has_trusted() ? ordered_json(settings.trusted()) : nullptr;
  object["option"] = settings.has_option() ? ordered_json(settings.option()) : nullptr;
  object["policy"] = settings.has_policy() ? ordered_json(settings.policy()) : nullptr;
}

bool HasKernelDrops(const control::KernelDrops& drops) {
  return drops.requests() != 0 || drops.replies() != 0 || drops.link_events() != 0;
}

std::string KernelDropsText(const control::KernelDrops& drops) {
  std::string text = "requests " + std::to_string(drops.requests()) + ", replies ";
  text.append(drops.has_replies() ? std::to_string(drops.replies()) : "-");
  return text.append(", link events ").append(std::to_string(drops.link_events()));
}

ordered_json KernelDropsAsJson(const control::KernelDrops& drops) {
  return {{"requests", drops.requests()},
          {"replies", drops.has_replies() ? ordered_json(drops.replies()) : nullptr},
          {"link_events", drops.link_events()}};
}

std::string Dump(const ordered_json& document) {
  return document.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string Columns(const std::vector<Row>& rows) {
  const std::vector<std::size_t> widths = Widths(rows);
  std::string text;
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line.append(row[i]).append(widths[i] - row[i].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text.append(line).append("\n");
  }
  return text;
}

}  // namespace relayctl
