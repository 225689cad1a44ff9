// The relay table as replies of bounded size.

#ifndef DHCP_MANAGER_CONTROL_TABLE_WRITER_H_
#define DHCP_MANAGER_CONTROL_TABLE_WRITER_H_

#include <deque>
#include <string>

#include "dhcp_manager/table/relay_table.h"

namespace dhcp_manager {

// Serialized control::Reply messages, the last of them marked. An instance too large for one reply
// goes on in the next under the same name: whoever reads them joins neighbours of one name.
std::deque<std::string> WriteTable(const RelayTable& table);

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_TABLE_WRITER_H_
