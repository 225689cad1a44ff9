#include "dhcp_manager/table/journal.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <utility>

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

constexpr int kFlags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW;
constexpr mode_t kMode = 0644;

// Without a descriptor, errno tells why.
base::Descriptor Open(const std::string& file, std::optional<uid_t> owner) {
  base::Descriptor made(open(file.c_str(), kFlags | O_CREAT | O_EXCL, kMode));
  if (!made && errno == EEXIST) return base::Descriptor(open(file.c_str(), kFlags));
  if (made && owner && fchown(made.get(), *owner, static_cast<gid_t>(-1)) != 0)
    return base::Descriptor();
  return made;
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

Journal::Journal(const std::string& file, std::optional<uid_t> owner)
    : file_(file), fd_(Open(file, owner)) {
  if (!fd_) base::ThrowSystemError("cannot write the journal " + file_);
}

void Journal::Add(const wire::Call& call) {
  if (!fd_) return;
  lines_.append(JournalLine(call)).append("\n");
  ++waiting_;
}

std::optional<std::string> Journal::Flush() {
  if (lines_.empty()) return std::nullopt;
  const std::string text = GapLine() + lines_;
  lines_.clear();
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t written = write(fd_.get(), rest.data(), rest.size());
    if (written > 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      const int error = written == 0 ? ENOSPC : errno;
      Remove(text.size() - rest.size());
      return Failed(error);
    }
  }
  waiting_ = gap_ = 0;
  fault_.clear();
  return std::nullopt;
}

std::string Journal::GapLine() const {
  return gap_ == 0 ? "" : "# " + std::to_string(gap_) + " calls are missing: " + fault_ + "\n";
}

// Takes back what was written last, as far as the file lets itself be cut.
void Journal::Remove(std::size_t size) {
  struct stat status{};
  if (size == 0 || fstat(fd_.get(), &status) != 0) return;
  [[maybe_unused]] const int result =
      ftruncate(fd_.get(), status.st_size - static_cast<off_t>(size));
}

std::optional<std::string> Journal::Failed(int error) {
  const bool first = fault_.empty();
  fault_ = std::generic_category().message(error);
  gap_ += waiting_;
  dropped_ += std::exchange(waiting_, 0);
  if (!first) return std::nullopt;
  return "cannot write the journal " + file_ + ": " + fault_;
}

std::optional<std::string> Journal::Reopen() {
  if (!fd_) return std::nullopt;
  base::Descriptor fd = Open(file_, std::nullopt);
  if (!fd) {
    return "cannot open the journal " + file_ + " anew: " + std::generic_category().message(errno);
  }
  fd_ = std::move(fd);
  return std::nullopt;
}

}  // namespace dhcp_manager
