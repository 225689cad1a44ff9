// How single values are printed.

#ifndef CTL_TEXT_H_
#define CTL_TEXT_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "control.pb.h"

namespace relayctl {

std::string AddressText(std::uint32_t host_order);

// "drop", "keep", "replace", or the number.
std::string PolicyText(std::uint32_t policy);

// "check on, trusted off, option -, policy keep": a dash for what is not set.
std::string OptionsText(const dhcp_manager::control::Options& options);

// Adds check, trusted, option and policy; null for what is not set.
void AddOptions(const dhcp_manager::control::Options& options, nlohmann::ordered_json& object);

// One line, whatever bytes names hold.
std::string Dump(const nlohmann::ordered_json& document);

}  // namespace relayctl

#endif  // CTL_TEXT_H_
