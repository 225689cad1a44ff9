#include "src/dhcp_relay_app/cdb_read.h"

#include <cstddef>
#include <cstdio>

#include <confd_cdb.h>
#include <vxmw/vxmw.h>

#include "src/lib/logger.h"

namespace dhcp_relay_app {
namespace {

std::size_t Index(int position) { return static_cast<std::size_t>(position); }

void Release(confd_value_t& value) {
  confd_free_value(&value);
  value.type = C_NOEXISTS;
}

}  // namespace

PolicyTable MakePolicyTable() {
  return {{0, {DhcpRelayPolicy::kDrop, "drop"}},
          {2, {DhcpRelayPolicy::kReplace, "replace"}},
          {1, {DhcpRelayPolicy::kKeep, "keep"}}};
}

void ReportReadFault(const char* function, const char* source_path, int line) {
  char text[kFaultTextSize] = {};
  std::snprintf(text, sizeof(text), "%s", confd_lasterr());
  vxmw_gen_fault(0, function, source_path, line, text);
}

ReleaseAtExit::~ReleaseAtExit() {
  for (confd_value_t& value : values_) Release(value);
}

ListKeys::ListKeys(int sock, const std::string& list, std::int64_t count)
    : values_(static_cast<std::size_t>(count)), release_(values_) {
  cdb_get_objects(sock, values_.data(), 1, 0, size(), "%s", list.c_str());
}

std::optional<std::string> ListKeys::Text(int position) const {
  char text[kKeyTextSize] = {};
  if (confd_pp_value(text, kKeyTextSize, &values_[Index(position)]) <= 0) return std::nullopt;
  return text;
}

void ListKeys::ReleaseKey(int position) { Release(values_[Index(position)]); }

}  // namespace dhcp_relay_app
