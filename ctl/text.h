// How single values are printed.

#ifndef CTL_TEXT_H_
#define CTL_TEXT_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "protocol/control/control.pb.h"
#include "protocol/control/text.h"

namespace relayctl {

// "check on, trusted off, option -, policy keep": a dash for what is not set.
std::string OptionsText(const dhcp_relay::control::Options& options);

// Adds check, trusted, option and policy; null for what is not set.
void AddOptions(const dhcp_relay::control::Options& options, nlohmann::ordered_json& object);

// One line, whatever bytes names hold.
std::string Dump(const nlohmann::ordered_json& document);

}  // namespace relayctl

#endif  // CTL_TEXT_H_
