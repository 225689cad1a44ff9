// The journal: every call the manager received, one line each.

#ifndef DHCP_MANAGER_TABLE_JOURNAL_H_
#define DHCP_MANAGER_TABLE_JOURNAL_H_

#include <string>

#include "base/descriptor.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {

// "Operation instance argument...": addresses dotted, booleans true and false, policies as words,
// identifiers as 0x%08x. The call is without fault (wire::Fault).
std::string JournalLine(const dhcp_relay::wire::Call& call);

class Journal {
 public:
  // Discards every call.
  Journal() = default;

  // Appends to `file`. Throws std::system_error when it cannot be opened.
  explicit Journal(const std::string& file);

  void Add(const dhcp_relay::wire::Call& call);

  // Writes the calls added so far to the file. Throws std::system_error.
  void Flush();

 private:
  std::string file_;
  base::Descriptor fd_;
  std::string lines_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_JOURNAL_H_
