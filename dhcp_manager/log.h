// Log lines of the manager and of its neighbours.

#ifndef DHCP_MANAGER_LOG_H_
#define DHCP_MANAGER_LOG_H_

#include <string>

namespace dhcp_manager {

// Starts logging to that category; without it lines are dropped.
void StartLog(const char* name);

// An error, or something an operator wants to know of.
void LogError(const std::string& text);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_LOG_H_
