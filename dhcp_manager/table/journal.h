// The journal: every call the manager received, one line each.

#ifndef DHCP_MANAGER_TABLE_JOURNAL_H_
#define DHCP_MANAGER_TABLE_JOURNAL_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "base/descriptor.h"
#include "protocol/wire/wire.h"

namespace dhcp_manager {

// "Operation instance argument...": addresses dotted, booleans true and false, policies as words,
// identifiers as 0x%08x. The call is without fault (wire::Fault).
std::string JournalLine(const dhcp_relay::wire::Call& call);

// A file that cannot be written, such as on a full disk, costs lines and nothing else: they are
// dropped and counted, and the next lines are tried again.
class Journal {
 public:
  // Discards every call.
  Journal() = default;

  // Appends to `file`, which must not be a symbolic link. A file that is made here is given to
  // `owner`, who can then open it anew. Throws std::system_error when it cannot be opened.
  explicit Journal(const std::string& file, std::optional<uid_t> owner = std::nullopt);

  void Add(const dhcp_relay::wire::Call& call);

  // Writes the calls added so far, all or none. Returns the reason when this is the first of them
  // that cannot be written.
  std::optional<std::string> Flush();

  // Opens the file anew, which may have been renamed or removed. Returns the reason when that is
  // not possible; lines still go to the file that was open.
  std::optional<std::string> Reopen();

  // Calls that are missing in the file.
  std::uint64_t dropped() const { return dropped_; }
  // Why the latest calls could not be written; empty when they could.
  const std::string& fault() const { return fault_; }

 private:
  std::string GapLine() const;
  void Remove(std::size_t size);
  std::optional<std::string> Failed(int error);

  std::string file_;
  base::Descriptor fd_;
  std::string lines_;
  std::uint64_t waiting_ = 0;  // number of lines_
  std::uint64_t gap_ = 0;      // lines dropped since the latest that was written
  std::uint64_t dropped_ = 0;
  std::string fault_;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_JOURNAL_H_
