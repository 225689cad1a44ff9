// How single values are printed.

#ifndef CTL_TEXT_H_
#define CTL_TEXT_H_

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "protocol/control/control.pb.h"

namespace relayctl {

// "check on, trusted off, option -, policy keep": a dash for what is not set.
std::string SettingsText(const dhcp_relay::control::Settings& settings);

// Adds check, trusted, option and policy; null for what is not set.
void AddSettings(const dhcp_relay::control::Settings& settings, nlohmann::ordered_json& object);

// Whether the kernel dropped anything.
bool HasKernelDrops(const dhcp_relay::control::KernelDrops& drops);

// "requests 3, replies 0, link events 0": a dash for replies that are not counted.
std::string KernelDropsText(const dhcp_relay::control::KernelDrops& drops);

// Null for replies that are not counted.
nlohmann::ordered_json KernelDropsAsJson(const dhcp_relay::control::KernelDrops& drops);

// One line, whatever bytes names hold.
std::string Dump(const nlohmann::ordered_json& document);

using Row = std::vector<std::string>;

// Columns as wide as their widest cell, two blanks apart. Every row has the cells of the first.
std::string Columns(const std::vector<Row>& rows);

}  // namespace relayctl

#endif  // CTL_TEXT_H_
