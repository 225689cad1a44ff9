#include "dhcp_manager/privileges.h"

#include <cap-ng.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <vector>

#include "base/system_error.h"

namespace dhcp_manager {
namespace {

// The library's enumerations are flags, meant to be combined.
// NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
constexpr auto kSets = static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED);

constexpr std::array<unsigned, 2> kRelaying{CAP_NET_RAW, CAP_NET_BIND_SERVICE};

}  // namespace

User FindUser(const std::string& name) {
  errno = 0;
  const passwd* const entry = getpwnam(name.c_str());
  if (entry == nullptr) {
    // Without an error the lookup has worked, and the answer is no.
    if (errno != 0) base::ThrowSystemError("there is no user " + name);
    throw std::runtime_error("there is no user " + name);
  }
  return {.id = entry->pw_uid, .group = entry->pw_gid};
}

std::optional<gid_t> FindGroup(const std::string& name) {
  errno = 0;
  const group* const entry = getgrnam(name.c_str());
  if (entry != nullptr) return entry->gr_gid;
  // These are the answer no, too.
  if (errno == 0 || errno == ENOENT || errno == ESRCH) return std::nullopt;
  base::ThrowSystemError("cannot look up the group " + name);
}

void GiveUpPrivileges() {
  capng_clear(CAPNG_SELECT_BOTH);
  if (capng_get_caps_process() != 0) throw std::runtime_error("cannot read the own capabilities");
  std::vector<unsigned> kept;
  for (const unsigned capability : kRelaying) {
    if (capng_have_capability(CAPNG_PERMITTED, capability) != 0) kept.push_back(capability);
  }
  // Without that capability the bounding set stays; no_new_privs makes it worth nothing.
  const bool bounds = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) != 0;
  capng_clear(CAPNG_SELECT_BOTH);
  for (const unsigned capability : kept) capng_update(CAPNG_ADD, kSets, capability);
  if (capng_apply(bounds ? CAPNG_SELECT_BOTH : CAPNG_SELECT_CAPS) != 0 ||
      prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    throw std::runtime_error("cannot give up privileges");
  }
}

void GiveUpPrivileges(const User& user) {
  capng_clear(CAPNG_SELECT_BOTH);
  constexpr auto kFlags =
      // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
      static_cast<capng_flags_t>(CAPNG_DROP_SUPP_GRP | CAPNG_CLEAR_BOUNDING);
  const bool chosen = capng_updatev(CAPNG_ADD, kSets, CAP_NET_RAW, CAP_NET_BIND_SERVICE, -1) == 0;
  if (!chosen ||
      capng_change_id(static_cast<int>(user.id), static_cast<int>(user.group), kFlags) != 0 ||
      prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    throw std::runtime_error(
        "cannot give up privileges: start the manager as root, or without --user");
  }
}

}  // namespace dhcp_manager
