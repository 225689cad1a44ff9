// Reading the configuration database: keys and values, and what becomes of a failed read.

#ifndef SRC_DHCP_RELAY_APP_CDB_READ_H_
#define SRC_DHCP_RELAY_APP_CDB_READ_H_

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <confd_lib.h>

#include "src/dhcp_relay_app/dhcp_relay_intf.h"
#include "src/lib/require_asserts.h"

namespace dhcp_relay_app {

// Sizes of the buffers that texts of the database are read into.
inline constexpr int kKeyTextSize = 256;
inline constexpr int kVrfNameSize = 64;

// The text of a string value: a macro, because the type check names the expression it is given.
#define TEXT_OF(value) reinterpret_cast<const char*>(CONFD_GET_BUFPTR(value))

inline TriState ToTriState(int flag) { return flag != 0 ? TriState::kYes : TriState::kNo; }

// Policies by their number in the database, with their names. Every reader keeps its own table.
using PolicyTable = std::map<int, std::pair<DhcpRelayPolicy, std::string>>;
PolicyTable MakePolicyTable();

// Raises a fault with the database's reason for a failed read, in the name of `function` at `line`
// of the source `source_path`.
void ReportReadFault(const char* function, const char* source_path, int line);

// Releases the values of an array when the scope is left, by an exception too.
class ReleaseAtExit {
 public:
  explicit ReleaseAtExit(std::span<confd_value_t> values) : values_(values) {}
  ~ReleaseAtExit();
  ReleaseAtExit(const ReleaseAtExit&) = delete;
  ReleaseAtExit& operator=(const ReleaseAtExit&) = delete;

 private:
  std::span<confd_value_t> values_;
};

// The keys of all entries of a list, in the database's order.
class ListKeys {
 public:
  // `count` is the number of the list's entries.
  ListKeys(int sock, const std::string& list, std::int64_t count);

  int size() const { return static_cast<int>(values_.size()); }

  // Nothing when the key cannot be rendered.
  std::optional<std::string> Text(int position) const;

  // Ahead of the others, which are released with the object.
  void ReleaseKey(int position);

 private:
  std::vector<confd_value_t> values_;
  ReleaseAtExit release_;
};

}  // namespace dhcp_relay_app

#endif  // SRC_DHCP_RELAY_APP_CDB_READ_H_
