#include "dhcp_manager/table/journal.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "base/system_error.h"
#include "dhcp_manager/table/relay_table.h"

namespace dhcp_manager {
namespace {

namespace wire = dhcp_relay::wire;

std::string ValueText(const wire::Call& call) {
  switch (call.value_case()) {
    case wire::Call::kAddress:
      return nettypes::IPv4Addr::from_host_order(call.address()).to_string();
    case wire::Call::kVlan:
      return std::to_string(call.vlan());
    case wire::Call::kIdentifier: {
      std::array<char, 16> text{};
      std::snprintf(text.data(), text.size(), "0x%08x", call.identifier());
      return text.data();
    }
    case wire::Call::kFlag:
      return call.flag() ? "true" : "false";
    case wire::Call::kPolicy:
      return dhcp_relay::wire::PolicyName(static_cast<dhcp_relay::wire::Policy>(call.policy()));
    case wire::Call::VALUE_NOT_SET:
      break;
  }
  return {};
}

}  // namespace

std::string JournalLine(const wire::Call& call) {
  std::string line = wire::FindOperation(call.operation())->name;
  line.append(" ").append(call.instance());
  for (const std::string& word : {call.name(), ValueText(call)}) {
    if (!word.empty()) line.append(" ").append(word);
  }
  return line;
}

Journal::Journal(const std::string& file)
    : file_(file), fd_(open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)) {
  if (!fd_) base::ThrowSystemError("cannot write the journal " + file_);
}

void Journal::Add(const wire::Call& call) {
  if (fd_) lines_.append(JournalLine(call)).append("\n");
}

void Journal::Flush() {
  std::string_view rest = lines_;
  while (!rest.empty()) {
    const ssize_t written = write(fd_.get(), rest.data(), rest.size());
    if (written < 0 && errno != EINTR) base::ThrowSystemError("cannot write the journal " + file_);
    if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
  }
  lines_.clear();
}

}  // namespace dhcp_manager
