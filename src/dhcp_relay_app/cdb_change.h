// A change of the configuration, as a commit's callbacks are told of it.

#ifndef SRC_DHCP_RELAY_APP_CDB_CHANGE_H_
#define SRC_DHCP_RELAY_APP_CDB_CHANGE_H_

#include <map>
#include <string>

#include <confd_lib.h>

namespace dhcp_relay_app {

// The trace line of a change: operation, path, old and new value.
#define CHANGE_FORMAT "%s: %s, oldv = %p, newv = %p\n"

extern const std::map<int, std::string> kIterOpNames;

// For the %p of a format.
inline const void* AsPointer(const confd_value_t* value) { return value; }

inline const char* EnabledText(int flag) { return flag != 0 ? "enabled" : "disabled"; }

// The changed leaf itself, or the list of a created or deleted entry; null when the path has no
// tag.
confd_value_t* InnermostTag(confd_hkeypath_t* kp);

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_CDB_CHANGE_H_
