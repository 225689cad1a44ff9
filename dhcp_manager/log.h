// The manager's log lines.

#ifndef DHCP_MANAGER_LOG_H_
#define DHCP_MANAGER_LOG_H_

#include <string>

namespace dhcp_manager {

// Starts logging to the category of the manager; without it lines are dropped.
void StartLog();

// An error, or something an operator wants to know of.
void LogError(const std::string& text);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_LOG_H_
